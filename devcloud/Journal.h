#pragma once

#include "base/JSON.h"

#include <cstdint>
#include <filesystem>
#include <functional>

namespace vorlane::devcloud {

/// Gets each change of a service's state after it has happened, in the form that
/// the service's `restore` takes.
using ChangeRecorder = std::function<void(JSONValue change)>;

/// The changes since the state was last written whole, one JSON object a line.
/// A change is in the file before the request that made it is answered, so that
/// a cloud that is killed knows everything that it has answered on its next start.
class Journal {
 public:
  /// Opens the file, mode 0600. Throws Failure naming the path.
  explicit Journal(const std::filesystem::path& file);
  ~Journal();
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;

  /// Hands each change to `apply`, the oldest first. A last line that was cut
  /// short never was answered for and is left out. Throws what `apply` throws,
  /// and JSONParseFailure for another line that is no JSON.
  void replay(const std::function<void(const JSONMap& change)>& apply) const;

  /// Throws Failure; the file is then as it was.
  void append(const JSONMap& change);
  /// Forgets everything, when the whole state is in its own file.
  void clear();
  std::uint64_t size() const { return size_; }

 private:
  const std::filesystem::path file_;
  int descriptor_;
  std::uint64_t size_ = 0;
};

}  // namespace vorlane::devcloud
