#pragma once

#include "base/JSON.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace vorlane::devcloud {

/// Somebody with an account, and what the cloud is to say about them. Rights
/// that nobody has granted are not there.
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

/// The people, by "sub". For the server's thread alone, like every service here.
class People {
 public:
  /// `changed` is called after each change.
  explicit People(std::function<void()> changed) : changed_(std::move(changed)) {}

  /// Null when there is no such person. Valid until the person is removed.
  const Person* find(std::string_view sub) const;
  const std::map<std::string, Person, std::less<>>& all() const { return people_; }

  void put(Person person);
  /// Adds the person whom "sub" names, or updates the fields that are there.
  const Person& update(const JSONMap& fields);
  bool remove(std::string_view sub);

  JSONArray state() const;
  void restore(const JSONArray& state);

 private:
  std::map<std::string, Person, std::less<>> people_;
  std::function<void()> changed_;
};

}  // namespace vorlane::devcloud
