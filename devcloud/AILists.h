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

/// A list in a person's Archive of generated lists.
struct AIList {
  /// Given by the cloud, from 1 up, never twice.
  std::int64_t id = 0;
  std::string owner;
  std::string name;
  /// The words that asked for it.
  std::string prompt;
  /// Objects with "name" and "items".
  JSONArray categories;
  /// The sheet that it was landed in, as the agent names it.
  std::string sheetID;
  Date createdAt;

  JSONMap json() const;
};

/// Everybody's Archives, and the routes through which assistants reach them.
/// To control them:
///
///   GET  ai-lists/{sub}          {"lists": [...]}
///   POST ai-lists/{sub}          {"name", "prompt", "sheetId", "categories", "createdAt"?}
class AILists : public Service {
 public:
  explicit AILists(const Services& services);

  void addRoutes(Router& router) override;

  /// A person's lists, the newest first.
  std::vector<AIList> ownedBy(std::string_view owner) const;
  /// Adds the list under a new id; an absent date becomes the present.
  const AIList& add(AIList list);
  void removeAll(std::string_view owner);

  /// A state is the change that makes it out of nothing.
  std::string_view stateName() const override { return "aiLists"; }
  JSONValue state() const override;
  void restore(const JSONValue& change) override;

 private:
  Response search(const Request& request) const;
  Response get(const Request& request) const;
  Response record(const Request& request);

  People& people_;
  const Identity& identity_;
  const Clock clock_;
  const ChangeRecorder changed_;
  std::map<std::int64_t, AIList> lists_;
  std::int64_t nextID_ = 1;
};

/// The list that a request describes: "name", "categories", "prompt", "sheetId",
/// and, where the cloud itself speaks, "id" and "createdAt". Throws FieldFailure.
AIList aiListFromJSON(const JSONMap& map, std::string owner);

}  // namespace vorlane::devcloud
