#pragma once

#include "base/JSON.h"
#include "devcloud/Journal.h"
#include "devcloud/Message.h"
#include "devcloud/Service.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vorlane::devcloud {

class Services;

/// A person with an account, and what the cloud answers about them. Rights
/// that were not granted are absent.
struct Person {
  std::string sub;
  std::string email;
  std::string name;
  /// The profile's "mcpAccess".
  bool mcpAccess = false;
  /// Tokens carry the administrator claim.
  bool admin = false;
  /// Of the admin snapshot; "isOwner" follows the role unless it is set.
  std::string role = "none";
  std::optional<bool> isOwner;
  /// Grants as the snapshot shows them: product, section, actions, scope, startsAt, expiresAt.
  JSONArray grants;
  /// Seconds.
  std::int64_t tokenLifetime = 3600;
  std::int64_t snapshotLifetime = 300;
  /// False: a refresh answers without a new refresh token and the old one lives on.
  bool rotatesRefreshTokens = true;
  /// May save projects.
  bool cloudProjectWrite = true;
  /// The account is deleted as the Sceneward cloud sees it: saves of projects get 410.
  bool gone = false;

  /// Takes over the fields that are there, by their names above. Throws
  /// FieldFailure for one that is unknown or of a wrong type; nothing has changed then.
  void update(const JSONMap& fields);
  JSONMap json() const;
};

/// The people, by "sub". To control them:
///
///   GET    people          {"people": [...]}
///   POST   people          adds or updates the person of "sub"; "cloudProjectWrite" and
///                          "gone" decide what the project routes answer
///   DELETE people/{sub}    with all that is theirs
class People : public Service {
 public:
  explicit People(const Services& services);

  void addRoutes(Router& router) override;

  /// The person whom "{sub}" in the request's path names; throws an apiError of status 404.
  const Person& requested(const Request& request) const;
  /// Null when there is no such person. Valid until the person is removed.
  const Person* find(std::string_view sub) const;
  const std::map<std::string, Person, std::less<>>& all() const { return people_; }

  void put(Person person);
  /// Adds the person whom "sub" names, or updates the fields that are there.
  const Person& update(const JSONMap& fields);
  /// False when there was no such person.
  bool remove(std::string_view sub);
  /// `action` is called before a person is removed: what is theirs goes too. Kept for good.
  void onRemoval(std::function<void(const std::string& sub)> action);

  std::string_view stateName() const override { return "people"; }
  JSONValue state() const override;
  void restore(const JSONValue& state) override;

 private:
  std::map<std::string, Person, std::less<>> people_;
  const ChangeRecorder changed_;
  std::vector<std::function<void(const std::string& sub)>> onRemoval_;
};

}  // namespace vorlane::devcloud
