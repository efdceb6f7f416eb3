#pragma once

#include "store/DatabasePool.h"

#include <memory>
#include <string>
#include <string_view>

namespace vorlane {

struct Paths;

/// The agent's one database, "Vorlane.sqlite", which it shares with the family's
/// applications. Opened once and passed on by reference; several stores on one file,
/// in one process or in several, are safe. Usable from any thread. There is no close:
/// the last reference to go waits for the writes that were asked for.
class AgentStore {
 public:
  /// Opens or makes the file in `directory`, which must exist, and brings its schema
  /// up to date. Throws DatabaseFailure; the file is then as it was before the
  /// step that failed.
  explicit AgentStore(const std::string& directory, DatabasePool::Options options = {});

  /// The store in the container of that app group. Throws also DomainFailure
  /// ("AgentStore", 1) when the platform has no such container.
  static std::shared_ptr<AgentStore> open(const Paths& paths, std::string_view appGroup);

  const DatabasePool& dbWriter() const { return pool_; }

 private:
  DatabasePool pool_;
};

}  // namespace vorlane
