#include "store/StoreMigrations.h"

#include "store/ScenewardID.h"

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace vorlane {
namespace {

/// A migration that is SQL alone: its statements, in order.
struct Step {
  const char* identifier;
  std::vector<const char*> statements;
};

const Step ledgerlyV1{"ledgerly_v1",
                      {R"(CREATE TABLE ledgerly_sheets (
  id TEXT PRIMARY KEY NOT NULL,
  owner_id TEXT NOT NULL,
  title TEXT NOT NULL,
  data TEXT NOT NULL,
  created_at DATETIME NOT NULL,
  updated_at DATETIME NOT NULL,
  synced_at DATETIME))",
                       "CREATE INDEX index_ledgerly_sheets_on_owner_id ON ledgerly_sheets (owner_id)"}};

// In the first version a cloud id was kept as the row's own id.
const Step ledgerlyV2{"ledgerly_v2_remote_id",
                      {"ALTER TABLE ledgerly_sheets ADD COLUMN remote_id INTEGER",
                       "ALTER TABLE ledgerly_sheets ADD COLUMN push_blocked_at DATETIME",
                       "UPDATE ledgerly_sheets\nSET remote_id = CAST(id AS INTEGER)\n"
                       "WHERE remote_id IS NULL AND id <> '' AND id NOT GLOB '*[^0-9]*'"}};

const Step scenewardV1{
    "sceneward_v1",
    {R"(CREATE TABLE sceneward_projects (
  id TEXT PRIMARY KEY NOT NULL,
  owner_id TEXT NOT NULL,
  title TEXT NOT NULL,
  data TEXT NOT NULL,
  created_at DATETIME NOT NULL,
  updated_at DATETIME NOT NULL,
  synced_at DATETIME))",
     "CREATE INDEX index_sceneward_projects_on_owner_id ON sceneward_projects (owner_id)"}};

const Step scenewardV2{"sceneward_v2_remote_version",
                       {"ALTER TABLE sceneward_projects ADD COLUMN remote_version INTEGER"}};

const Step scenewardV4{"sceneward_v4_push_blocked",
                       {"ALTER TABLE sceneward_projects ADD COLUMN push_blocked_at DATETIME"}};

const Step scenewardV5{"sceneward_v5_explicit_checkpoint_queue",
                       {R"(CREATE TABLE sceneward_checkpoint_queue (
  operation_id TEXT NOT NULL,
  owner_id TEXT NOT NULL,
  project_id TEXT NOT NULL,
  payload BLOB NOT NULL,
  payload_hash TEXT NOT NULL,
  status TEXT NOT NULL DEFAULT 'pending',
  receipt BLOB,
  created_at DATETIME NOT NULL,
  PRIMARY KEY (owner_id, operation_id)))",
                        R"(CREATE TABLE sceneward_checkpoint_deleted_owners (
  owner_id TEXT PRIMARY KEY,
  deleted_at DATETIME NOT NULL))"}};

const Step scenewardV6{
    "sceneward_v6_project_save_cancellation",
    {"CREATE TABLE sceneward_cancelled_projects (owner_hash TEXT NOT NULL, project_id TEXT NOT NULL, "
     "restored_at DATETIME, PRIMARY KEY(owner_hash,project_id))",
     "CREATE TABLE sceneward_cancelled_operations (owner_hash TEXT NOT NULL, operation_id TEXT NOT NULL, "
     "PRIMARY KEY(owner_hash,operation_id))"}};

const Step recentsV1{"recents_v1",
                     {R"(CREATE TABLE recents (
  rowid INTEGER PRIMARY KEY AUTOINCREMENT,
  user_id TEXT NOT NULL,
  app TEXT NOT NULL,
  entity_id TEXT NOT NULL,
  opened_at DATETIME NOT NULL,
  UNIQUE (user_id, app, entity_id)))",
                      "CREATE INDEX index_recents_on_user_id ON recents (user_id)",
                      "CREATE INDEX idx_recents_user_opened ON recents (user_id, opened_at)"}};

/// Brings every project id into its canonical form. Of several spellings of one id
/// the row with the longest document survives, the first of them on equal length.
void canonicaliseProjectIDs(Database& database) {
  std::map<std::string, std::vector<std::string>> groups;
  for (auto& id : database.fetchAll<std::string>("SELECT id FROM sceneward_projects")) {
    groups[ScenewardID::canonical(id)].push_back(id);
  }
  for (const auto& [canonical, members] : groups) {
    const std::string* survivor = &members.front();
    if (members.size() > 1) {
      std::int64_t longest = -1;
      for (const auto& id : members) {
        const auto length =
            database.fetchCount("SELECT length(data) FROM sceneward_projects WHERE id = ?", id);
        if (length <= longest) continue;
        longest = length;
        survivor = &id;
      }
      for (const auto& id : members) {
        if (&id != survivor) database.execute("DELETE FROM sceneward_projects WHERE id = ?", id);
      }
    }
    if (*survivor != canonical) {
      database.execute("UPDATE sceneward_projects SET id = ? WHERE id = ?", canonical, *survivor);
    }
  }
}

}  // namespace

Migrator storeMigrator() {
  Migrator migrator;
  const auto add = [&](const Step& step) {
    migrator.registerMigration(step.identifier, [&step](Database& database) {
      for (const char* statement : step.statements) database.execute(statement);
    });
  };
  add(ledgerlyV1);
  add(ledgerlyV2);
  add(scenewardV1);
  add(scenewardV2);
  migrator.registerMigration("sceneward_v3_canonical_ids", canonicaliseProjectIDs);
  add(scenewardV4);
  add(scenewardV5);
  add(scenewardV6);
  add(recentsV1);
  return migrator;
}

}  // namespace vorlane
