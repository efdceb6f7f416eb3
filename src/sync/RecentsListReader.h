#pragma once

#include "base/tasks/Task.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vorlane {

/// Reads a cloud's list of documents piece by piece and builds no tree of it, so that a list of
/// megabytes takes little beside its text and leaves the thread to others. Used by one task.
class RecentsListReader {
 public:
  /// What the lists of a service look like.
  struct Form {
    /// Where the list stands in the answer.
    std::string_view key;
    /// Whether an id may be a number; it is then kept as its decimal text.
    bool numericIDs = false;
    /// What may hold the title, the first that is there wins; empty names end the list.
    std::string_view titleKeys[3];
  };

  /// One entry of a list, as the cloud tells it.
  struct Entry {
    std::string id;
    std::optional<std::string> title;
    std::string updatedAt;
  };

  /// Hands every entry to `take`, in order, once all of them have been read: where one cannot
  /// be, none is handed out. Throws Failure that says what is wrong with the first such entry
  /// or with the answer, JSONParseFailure, and what `take` throws.
  static Task<> read(Form form, std::string body, std::function<Task<>(Entry)> take);
};

}  // namespace vorlane
