#pragma once

#include "base/Date.h"
#include "base/JSON.h"
#include "devcloud/Journal.h"
#include "devcloud/Message.h"
#include "devcloud/Service.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vorlane::devcloud {

class Identity;
class People;
class Services;

/// A sheet as the Ledgerly cloud keeps it.
struct Sheet {
  /// Given by the cloud, from 1000 up, never twice.
  std::int64_t id = 0;
  /// The "sub" of the person whose it is.
  std::string owner;
  std::string name;
  std::string type = "saved";
  std::string sourceName;
  JSONMap data;
  JSONMap metadata;
  Date createdAt;
  Date updatedAt;
  /// How often a PUT has replaced it.
  std::int64_t updates = 0;

  /// With the document, and without it as in a list.
  JSONMap json() const;
  JSONMap summary() const;
};

/// The sheets of everybody, and the routes over them.
/// To control them:
///
///   GET    sheets/{sub}          {"sheets": [...]}, with documents and "updates"
///   POST   sheets/{sub}          adds a sheet, or replaces the one of "id"
///   DELETE sheets/{sub}/{id}
class Sheets : public Service {
 public:
  explicit Sheets(const Services& services);

  void addRoutes(Router& router) override;

  /// A person's sheets, the most recently changed first.
  std::vector<Sheet> ownedBy(std::string_view owner) const;
  /// Adds a sheet (id 0), or replaces the person's sheet of that id, which may
  /// be a new one. Sets the dates that are absent. Throws Failure when the id
  /// belongs to another person or is below 1000, and
  /// FieldFailure when the document nests too deep to be answered.
  const Sheet& put(Sheet sheet);
  bool remove(std::string_view owner, std::int64_t id);
  void removeAll(std::string_view owner);
  /// Null when the person has no such sheet. Valid until the next change.
  const Sheet* find(std::string_view owner, std::int64_t id) const;

  /// A state is the change that makes it out of nothing.
  std::string_view stateName() const override { return "sheets"; }
  JSONValue state() const override;
  void restore(const JSONValue& change) override;

 private:
  Response list(const Request& request) const;
  Response create(const Request& request);
  Response read(const Request& request) const;
  Response replace(const Request& request);
  Response erase(const Request& request);
  /// The sheet that the path names when it is the bearer's; throws 401 or 404.
  const Sheet& requested(const Request& request) const;

  People& people_;
  const Identity& identity_;
  const Clock clock_;
  const ChangeRecorder changed_;
  std::map<std::int64_t, Sheet> sheets_;
  std::int64_t nextID_ = 1000;
};

/// The sheet that a control request or the kept state describes: "name", "data",
/// and optionally "id", "type", "sourceName", "metadata", "createdAt",
/// "updatedAt". Throws FieldFailure.
Sheet sheetFromJSON(const JSONMap& map, std::string owner);

}  // namespace vorlane::devcloud
