#pragma once

#include "base/Date.h"
#include "base/JSON.h"

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

namespace vorlane {

/// What the exchange with the cloud last came to, for each service and account, as a
/// person is told it. In memory alone: it speaks of this run of the agent. Callable from
/// any thread.
class SyncJournal {
 public:
  enum class Service { sheets, checkpoints, recents };

  explicit SyncJournal(Clock clock = now) : clock_(std::move(clock)) {}

  /// The cloud took, or gave, what it was asked to. Ends the error that stood.
  void succeeded(Service service, const std::string& ownerID);
  /// `error` is for people; the secrets of this process are struck out of it.
  void failed(Service service, const std::string& ownerID, std::string error);

  /// For each service "lastSuccess" (ISO 8601, or null) and "lastError" (null, or an object of
  /// "at" and "error") of that account alone.
  JSONMap report(const std::string& ownerID) const;

 private:
  struct Entry {
    std::optional<Date> success;
    std::optional<std::pair<Date, std::string>> error;
  };

  const Clock clock_;
  mutable std::mutex lock_;
  std::map<std::pair<std::string, Service>, Entry> entries_;
};

}  // namespace vorlane
