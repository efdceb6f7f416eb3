#include "sync/SyncJournal.h"

#include "base/Redaction.h"

#include <string_view>

namespace vorlane {
namespace {

constexpr std::pair<SyncJournal::Service, std::string_view> services[] = {
    {SyncJournal::Service::sheets, "sheets"},
    {SyncJournal::Service::checkpoints, "checkpoints"},
    {SyncJournal::Service::recents, "recents"},
};

}  // namespace

void SyncJournal::succeeded(Service service, const std::string& ownerID) {
  const auto at = clock_();
  const std::scoped_lock hold(lock_);
  entries_[{ownerID, service}] = {.success = at, .error = std::nullopt};
}

void SyncJournal::failed(Service service, const std::string& ownerID, std::string error) {
  const auto at = clock_();
  const std::scoped_lock hold(lock_);
  entries_[{ownerID, service}].error.emplace(at, redacted(std::move(error)));
}

JSONMap SyncJournal::report(const std::string& ownerID) const {
  JSONMap report;
  const std::scoped_lock hold(lock_);
  for (const auto& [service, name] : services) {
    JSONMap told{{"lastSuccess", nullptr}, {"lastError", nullptr}};
    if (const auto found = entries_.find({ownerID, service}); found != entries_.end()) {
      const auto& [success, error] = found->second;
      if (success) told["lastSuccess"] = iso8601Text(*success);
      if (error) told["lastError"] = JSONMap{{"at", iso8601Text(error->first)}, {"error", error->second}};
    }
    report[name] = std::move(told);
  }
  return report;
}

}  // namespace vorlane
