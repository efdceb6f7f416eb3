#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace vorlane {

/// Bytes as a user default holds them, apart from text.
struct DefaultsData {
  std::string bytes;
  friend bool operator==(const DefaultsData&, const DefaultsData&) = default;
};

using DefaultsValue = std::variant<bool, std::int64_t, std::string, DefaultsData>;

/// One domain of user defaults: a small key-value store that several processes
/// share. Stands for NSUserDefaults. Callable from any thread; a read sees what
/// any process has written. A file that is missing, unreadable or no JSON object
/// reads as empty, with a log line; a value of another type reads as absent.
class UserDefaults {
 public:
  /// A key and its new value; no value removes the key.
  using Change = std::pair<std::string, std::optional<DefaultsValue>>;

  virtual ~UserDefaults() = default;

  virtual std::optional<DefaultsValue> value(std::string_view key) const = 0;
  /// Makes all changes in one step, so that no reader sees only some of them.
  /// Keys and values that this build does not know stay. Throws Failure when the
  /// domain cannot be written; what was stored before then stays. A file that
  /// cannot be parsed is moved aside, never lost.
  virtual void apply(std::vector<Change> changes) = 0;

  std::optional<bool> boolean(std::string_view key) const { return as<bool>(key); }
  std::optional<std::int64_t> integer(std::string_view key) const { return as<std::int64_t>(key); }
  std::optional<std::string> string(std::string_view key) const { return as<std::string>(key); }
  std::optional<DefaultsData> data(std::string_view key) const { return as<DefaultsData>(key); }

 private:
  template <class T>
  std::optional<T> as(std::string_view key) const {
    auto found = value(key);
    if (!found || !std::holds_alternative<T>(*found)) return std::nullopt;
    return std::get<T>(std::move(*found));
  }
};

}  // namespace vorlane
