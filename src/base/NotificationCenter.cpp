#include "base/NotificationCenter.h"

#include "base/Failure.h"
#include "base/ShellLog.h"

#include <fmt/format.h>

#include <vector>

namespace vorlane {

struct NotificationCenter::Table {
  struct Entry {
    std::string name;
    std::shared_ptr<Handler> handler;
  };
  std::mutex lock;
  std::map<std::uint64_t, Entry> entries;
  std::uint64_t next = 0;
};

NotificationCenter::NotificationCenter() : table_(std::make_shared<Table>()) {}

void NotificationCenter::post(std::string_view name) const {
  std::vector<std::pair<std::uint64_t, std::shared_ptr<Handler>>> due;
  {
    const std::scoped_lock hold(table_->lock);
    for (const auto& [id, entry] : table_->entries) {
      if (entry.name == name) due.emplace_back(id, entry.handler);
    }
  }
  for (const auto& [id, handler] : due) {
    {
      // An observer that ran just now may have cancelled this one.
      const std::scoped_lock hold(table_->lock);
      if (!table_->entries.contains(id)) continue;
    }
    try {
      (*handler)();
    } catch (const std::exception& error) {
      shellLog(fmt::format("observer of {} failed: {}", name, describe(error)));
    } catch (...) {
      shellLog(fmt::format("observer of {} failed", name));
    }
  }
}

Observation NotificationCenter::observe(std::string name, Handler handler) {
  std::uint64_t id = 0;
  {
    const std::scoped_lock hold(table_->lock);
    id = table_->next++;
    table_->entries.emplace(id, Table::Entry{std::move(name), std::make_shared<Handler>(std::move(handler))});
  }
  return Observation([table = std::weak_ptr(table_), id] {
    if (const auto alive = table.lock()) {
      // The handler may own what observes, so it is destroyed outside the lock.
      decltype(alive->entries)::node_type removed;
      const std::scoped_lock hold(alive->lock);
      removed = alive->entries.extract(id);
    }
  });
}

}  // namespace vorlane
