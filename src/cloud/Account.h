#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace vorlane {

/// The signed-in account's id; nothing while nobody is signed in. Callable from any thread.
using CurrentUser = std::function<std::optional<std::string>()>;

/// Who is signed in, and how often that has changed. What an AccountMark is taken of.
struct Account {
  CurrentUser currentUser;
  /// Moves with every change of account, and is only compared within this process. Callable
  /// from any thread.
  std::function<std::int64_t()> epoch;
};

}  // namespace vorlane
