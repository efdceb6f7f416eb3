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

/// One checkpoint that a project was saved as. Its payload is not kept.
struct Commit {
  /// Counts over everybody's commits, from 1.
  std::int64_t number = 0;
  /// In lower case.
  std::string operationID;
  /// Both as the payload states them.
  std::string checkpointID;
  std::string contentHash;
  /// The project's revision with this commit.
  std::int64_t revision = 0;
  /// Lower-case hexadecimal SHA-256 and length of the bytes that arrived.
  std::string payloadHash;
  std::int64_t payloadBytes = 0;
  Date committedAt;
  /// How often these bytes have arrived; each time they got the same receipt.
  std::int64_t received = 1;

  JSONMap receipt() const;
  JSONMap json() const;
};

/// A project as the Sceneward cloud keeps it.
struct Project {
  /// A UUID in lower case.
  std::string id;
  /// The "sub" of the person whose it is.
  std::string owner;
  std::string name;
  Date updatedAt;
  /// How many checkpoints the cloud has of it, plus the revision that it was put with.
  std::int64_t revision = 0;
  /// The oldest first.
  std::vector<Commit> commits;

  /// As in a list, and with revision and commits.
  JSONMap summary() const;
  JSONMap json() const;
};

/// Everybody's projects and the routes over them: what the bearer may do, the
/// list, and the saving of checkpoints. A save that is sent again with the same
/// bytes gets the receipt of the first time and changes nothing.
/// To control them:
///
///   GET    projects/{sub}        {"projects": [...]}, each with "revision" and "commits"
///   POST   projects/{sub}        {"id", "name"?, "updatedAt"?, "revision"?, "commits"?}
///   DELETE projects/{sub}/{id}
class Projects : public Service {
 public:
  explicit Projects(const Services& services);

  void addRoutes(Router& router) override;

  /// A person's projects, the most recently changed first.
  std::vector<Project> ownedBy(std::string_view owner) const;
  /// A person's commits in the order in which they were made.
  std::vector<Commit> commits(std::string_view owner) const;
  /// Adds the project or replaces it; an absent date becomes the present.
  /// Throws FieldFailure when the id is no UUID, Failure when it belongs to another person.
  const Project& put(Project project);
  bool remove(std::string_view owner, std::string_view id);
  void removeAll(std::string_view owner);

  /// A state is the change that makes it out of nothing.
  std::string_view stateName() const override { return "projects"; }
  JSONValue state() const override;
  void restore(const JSONValue& change) override;

 private:
  Response me(const Request& request) const;
  Response list(const Request& request) const;
  Response save(const Request& request);
  /// The commit that these bytes made earlier or make now; throws an apiError.
  Commit commit(const std::string& owner, const std::string& id, std::string_view body);
  /// Throws 409 when the person has used the operation's id for other bytes.
  void refuseReuse(const std::string& owner, const std::string& operationID) const;
  /// Keeps the project and records that it has changed.
  const Project& keep(Project project);

  People& people_;
  const Identity& identity_;
  const Clock clock_;
  const ChangeRecorder changed_;
  std::map<std::string, Project, std::less<>> projects_;
  std::int64_t nextNumber_ = 1;
};

/// The project that a control request or the kept state describes: "id", "name",
/// and optionally "updatedAt", "revision", "commits". Throws FieldFailure.
Project projectFromJSON(const JSONMap& map, std::string owner);

}  // namespace vorlane::devcloud
