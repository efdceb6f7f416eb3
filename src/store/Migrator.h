#pragma once

#include "store/Database.h"

#include <functional>
#include <string>
#include <vector>

namespace vorlane {

/// The ordered list of schema changes. Each is applied once to a file, in a
/// transaction of its own that also notes it in the file's own table, which is
/// shared with the family's applications and so keeps its name and form.
class Migrator {
 public:
  using Migration = std::function<void(Database&)>;

  /// Adds a migration after those before it. An identifier that is there already
  /// ends the process.
  void registerMigration(std::string identifier, Migration migration);

  /// Applies what the file lacks. Several processes may do so at once. Throws
  /// DatabaseFailure, naming the migration: those before it stay applied, and those
  /// after it are not run. Identifiers that are not registered are left alone.
  void migrate(Connection& connection) const;

 private:
  struct Registered {
    std::string identifier;
    Migration migration;
  };
  static void apply(Connection& connection, const Registered& step);

  std::vector<Registered> registered_;
};

}  // namespace vorlane
