#pragma once

#include <optional>
#include <string>

namespace vorlane {

/// Where the secret of the HTTP endpoint is kept. Callable from any thread; each
/// operation throws DomainFailure when the storage fails.
class BearerSecretStorage {
 public:
  virtual ~BearerSecretStorage() = default;
  /// Nothing when there is none.
  virtual std::optional<std::string> read() = 0;
  /// Replaces whatever is there.
  virtual void write(const std::string& secret) = 0;
  /// Stores the secret unless there is one already, which is kept: then false.
  virtual bool create(const std::string& secret) = 0;
  /// Removing what is not there is no failure.
  virtual void remove() = 0;

  /// As long as this mark stays equal, so does the secret; nothing when the
  /// storage cannot tell. Never throws.
  virtual std::optional<std::string> stamp() { return std::nullopt; }
};

}  // namespace vorlane
