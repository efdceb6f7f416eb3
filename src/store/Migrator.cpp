#include "store/Migrator.h"

#include "store/DatabaseFailure.h"
#include "store/ProgrammingFault.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <algorithm>
#include <set>

namespace vorlane {
namespace {

/// Foreign keys are off for the object's lifetime. The pragma does nothing inside
/// a transaction, so it stands around them all.
class ForeignKeysOff {
 public:
  explicit ForeignKeysOff(Connection& connection) : connection_(connection) {
    connection_.run("PRAGMA foreign_keys = OFF");
  }
  ~ForeignKeysOff() {
    try {
      connection_.run("PRAGMA foreign_keys = ON");
    } catch (const std::exception&) {
      // Only out of memory; the failure that is on its way then ends the pool.
    }
  }
  ForeignKeysOff(const ForeignKeysOff&) = delete;
  ForeignKeysOff& operator=(const ForeignKeysOff&) = delete;

 private:
  Connection& connection_;
};

void checkForeignKeys(Database& database) {
  if (const auto table = database.fetchOne<std::string>("PRAGMA foreign_key_check")) {
    throw DatabaseFailure(SQLITE_CONSTRAINT_FOREIGNKEY, "FOREIGN KEY constraint failed in table " + *table);
  }
}

}  // namespace

void Migrator::registerMigration(std::string identifier, Migration migration) {
  if (std::ranges::find(registered_, identifier, &Registered::identifier) != registered_.end()) {
    programmingFault("already registered migration: " + identifier);
  }
  registered_.push_back({std::move(identifier), std::move(migration)});
}

void Migrator::migrate(Connection& connection) const {
  connection.run("CREATE TABLE IF NOT EXISTS grdb_migrations (identifier TEXT NOT NULL PRIMARY KEY)");
  Database database(connection);
  const auto identifiers = database.fetchAll<std::string>("SELECT identifier FROM grdb_migrations");
  const std::set<std::string> applied(identifiers.begin(), identifiers.end());
  const ForeignKeysOff off(connection);
  for (const auto& step : registered_) {
    if (!applied.contains(step.identifier)) apply(connection, step);
  }
}

void Migrator::apply(Connection& connection, const Registered& step) {
  try {
    connection.begin("BEGIN IMMEDIATE");
    Database database(connection);
    // Another process may have applied it since the set was read.
    const auto isApplied =
        database.fetchCount("SELECT COUNT(*) FROM grdb_migrations WHERE identifier = ?", step.identifier);
    if (isApplied == 0) {
      step.migration(database);
      checkForeignKeys(database);
      database.execute("INSERT INTO grdb_migrations (identifier) VALUES (?)", step.identifier);
    }
    connection.commit();
  } catch (const DatabaseFailure& error) {
    connection.rollback();
    throw DatabaseFailure(static_cast<int>(error.code()),
                          fmt::format("migration {}: {}", step.identifier, error.description()));
  } catch (...) {
    connection.rollback();
    throw;
  }
}

}  // namespace vorlane
