#include "devcloud/Projects.h"

#include "base/Identifiers.h"
#include "base/JSONArguments.h"
#include "base/SHA256.h"
#include "devcloud/CheckpointPayload.h"
#include "devcloud/Control.h"
#include "devcloud/Fields.h"
#include "devcloud/Identity.h"
#include "devcloud/People.h"
#include "devcloud/Router.h"
#include "devcloud/Services.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>

namespace vorlane::devcloud {
namespace {

constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();

Commit commitFromJSON(const JSONMap& map) {
  Fields fields(map);
  Commit commit;
  commit.number = fields.integer("number", 0, most - 1).value_or(0);
  commit.operationID = fields.requiredString("operationId");
  commit.checkpointID = fields.requiredString("checkpointId");
  commit.contentHash = fields.requiredString("contentHash");
  commit.revision = fields.integer("revision", 0, most).value_or(0);
  commit.payloadHash = fields.requiredString("payloadSha256");
  commit.payloadBytes = fields.integer("payloadBytes", 0, most).value_or(0);
  commit.committedAt = fields.date("committedAt").value_or(Date{});
  commit.received = fields.integer("received", 1, most).value_or(1);
  fields.refuseOthers();
  return commit;
}

JSONMap kept(const Project& project) {
  return {{"owner", project.owner}, {"project", project.json()}};
}

HTTPError conflict(const std::string& text, std::int64_t revision) {
  return HTTPError(409, {{"success", false}, {"error", text}, {"currentRevision", revision}});
}

}  // namespace

JSONMap Commit::receipt() const {
  return {{"checkpointId", checkpointID},
          {"contentHash", contentHash},
          {"committedManifestRevision", revision},
          {"committedAt", webDateText(committedAt)}};
}

JSONMap Commit::json() const {
  return {{"number", number},
          {"operationId", operationID},
          {"checkpointId", checkpointID},
          {"contentHash", contentHash},
          {"revision", revision},
          {"payloadSha256", payloadHash},
          {"payloadBytes", payloadBytes},
          {"committedAt", webDateText(committedAt)},
          {"received", received}};
}

JSONMap Project::summary() const {
  return {{"id", id}, {"name", name}, {"updatedAt", webDateText(updatedAt)}};
}

JSONMap Project::json() const {
  JSONMap map = summary();
  map["revision"] = revision;
  JSONArray list;
  for (const Commit& commit : commits) list.push_back(commit.json());
  map["commits"] = std::move(list);
  return map;
}

Project projectFromJSON(const JSONMap& map, std::string owner) {
  Fields fields(map);
  Project project;
  project.id = fields.requiredString("id");
  project.owner = std::move(owner);
  project.name = fields.string("name").value_or("");
  project.updatedAt = fields.date("updatedAt").value_or(Date{});
  project.revision = fields.integer("revision", 0, most - 1).value_or(0);
  if (const JSONArray* commits = fields.array("commits")) {
    for (const auto& commit : *commits) {
      if (!commit.is_object()) throw FieldFailure("commits", "must hold objects alone");
      project.commits.push_back(commitFromJSON(commit.get_object()));
    }
  }
  fields.refuseOthers();
  return project;
}

Projects::Projects(const Services& services)
    : people_(services.get<People>()),
      identity_(services.get<Identity>()),
      clock_(services.settings().clock),
      changed_(services.recorder(stateName())) {
  people_.onRemoval([this](const std::string& sub) { removeAll(sub); });
}

void Projects::addRoutes(Router& router) {
  router.add("GET", "/api/v1/user/me", Scheme::secure,
             [this](const Request& request) { return me(request); });
  router.add("GET", "/api/v1/projects", Scheme::secure,
             [this](const Request& request) { return list(request); });
  router.add("PUT", "/api/v1/projects/{id}/checkpoints", Scheme::secure,
             [this](const Request& request) { return save(request); });

  const auto listed = [this](const std::string& sub) {
    JSONArray projects;
    for (const Project& project : ownedBy(sub)) projects.push_back(project.json());
    return projects;
  };
  const auto taken = [this](const JSONMap& body, const std::string& sub) {
    return put(projectFromJSON(body, sub)).json();
  };
  addOwnedRoutes(router, people_, {.name = "projects", .key = "projects", .list = listed, .put = taken});
  router.add("DELETE", "/__control/projects/{sub}/{id}", Scheme::both, [this](const Request& request) {
    return doneOr404(remove(people_.requested(request).sub, request.parameter("id")),
                     "there is no such project");
  });
}

std::vector<Project> Projects::ownedBy(std::string_view owner) const {
  std::vector<Project> owned;
  for (const auto& [id, project] : projects_) {
    if (project.owner == owner) owned.push_back(project);
  }
  std::ranges::sort(owned, std::ranges::greater(),
                    [](const Project& project) { return std::pair(project.updatedAt, project.id); });
  return owned;
}

std::vector<Commit> Projects::commits(std::string_view owner) const {
  std::vector<Commit> commits;
  for (const auto& [id, project] : projects_) {
    if (project.owner == owner) commits.insert(commits.end(), project.commits.begin(), project.commits.end());
  }
  std::ranges::sort(commits, {}, &Commit::number);
  return commits;
}

const Project& Projects::keep(Project project) {
  const std::string id = project.id;
  const Project& now = projects_[id] = std::move(project);
  changed_({{"list", JSONArray{kept(now)}}, {"nextNumber", nextNumber_}});
  return now;
}

const Project& Projects::put(Project project) {
  const auto id = canonicalUUID(project.id);
  if (!id) throw FieldFailure("id", "must be a UUID");
  // By way of its kept form, so that what is kept can be read again.
  const Date updatedAt = project.updatedAt == Date{} ? clock_() : project.updatedAt;
  project = projectFromJSON(project.json(), project.owner);
  project.id = *id;
  project.updatedAt = updatedAt;
  const auto known = projects_.find(*id);
  if (known != projects_.end() && known->second.owner != project.owner) {
    throw Failure(fmt::format("project {} is somebody else's", *id));
  }
  for (Commit& commit : project.commits) {
    if (commit.number == 0) commit.number = nextNumber_;
    nextNumber_ = std::max(nextNumber_, commit.number + 1);
  }
  return keep(std::move(project));
}

bool Projects::remove(std::string_view owner, std::string_view id) {
  const auto found = projects_.find(canonicalUUID(id).value_or(std::string(id)));
  if (found == projects_.end() || found->second.owner != owner) return false;
  JSONArray removed{found->first};
  projects_.erase(found);
  changed_({{"removed", std::move(removed)}});
  return true;
}

void Projects::removeAll(std::string_view owner) {
  for (const Project& project : ownedBy(owner)) remove(owner, project.id);
}

Response Projects::me(const Request& request) const {
  const Person& person = identity_.authenticate(request);
  return Response::json(200,
                        {{"subject", person.sub},
                         {"persistenceCapabilities", {{"cloudProjectWrite", person.cloudProjectWrite}}}});
}

Response Projects::list(const Request& request) const {
  JSONArray projects;
  for (const Project& project : ownedBy(identity_.authenticate(request).sub)) {
    projects.push_back(project.summary());
  }
  return Response::json(200, {{"projects", std::move(projects)}});
}

Response Projects::save(const Request& request) {
  const Person& person = identity_.authenticate(request);
  if (person.gone) throw apiError(410, "This account is gone");
  if (!person.cloudProjectWrite) throw apiError(403, "This account may not save projects");
  const auto id = canonicalUUID(request.parameter("id"));
  const auto found = id ? projects_.find(*id) : projects_.end();
  // Somebody else's project answers like an id that no project can have.
  if (!id || (found != projects_.end() && found->second.owner != person.sub)) {
    throw apiError(404, "Project not found");
  }
  return Response::json(200, commit(person.sub, *id, request.body).receipt());
}

Commit Projects::commit(const std::string& owner, const std::string& id, std::string_view body) {
  const std::string hash = sha256Hex(body);
  const auto found = projects_.find(id);
  Project project = found == projects_.end() ? Project{.id = id, .owner = owner} : found->second;

  const auto known = std::ranges::find(project.commits, hash, &Commit::payloadHash);
  if (known != project.commits.end()) {
    ++known->received;
    Commit again = *known;
    keep(std::move(project));
    return again;
  }

  const CheckpointPayload payload = readCheckpointPayload(body, id);
  refuseReuse(owner, payload.operationID);
  if (payload.expectedRevision != project.revision) {
    throw conflict(fmt::format("the project is at revision {}", project.revision), project.revision);
  }
  Commit commit{.number = nextNumber_++,
                .operationID = payload.operationID,
                .checkpointID = payload.checkpointID,
                .contentHash = payload.contentHash,
                .revision = ++project.revision,
                .payloadHash = hash,
                .payloadBytes = static_cast<std::int64_t>(body.size()),
                .committedAt = storageRounded(clock_())};
  if (!payload.projectName.empty()) project.name = payload.projectName;
  if (project.name.empty()) project.name = "Untitled";
  project.updatedAt = commit.committedAt;
  project.commits.push_back(commit);
  keep(std::move(project));
  return commit;
}

void Projects::refuseReuse(const std::string& owner, const std::string& operationID) const {
  for (const auto& [id, project] : projects_) {
    if (project.owner != owner) continue;
    if (std::ranges::find(project.commits, operationID, &Commit::operationID) != project.commits.end()) {
      throw conflict(fmt::format("operation {} has come with other bytes", operationID), project.revision);
    }
  }
}

JSONValue Projects::state() const {
  JSONArray list;
  for (const auto& [id, project] : projects_) list.push_back(kept(project));
  return {{"list", std::move(list)}, {"nextNumber", nextNumber_}};
}

void Projects::restore(const JSONValue& given) {
  const JSONMap& change = given.as_object();
  if (const JSONValue* list = json::find(change, "list")) {
    for (const auto& value : list->as_array()) {
      const JSONMap& entry = value.as_object();
      Project project = projectFromJSON(entry.at("project").as_object(), json::stringOr(entry, "owner"));
      const std::string id = project.id;
      projects_.insert_or_assign(id, std::move(project));
    }
  }
  if (const JSONValue* removed = json::find(change, "removed")) {
    for (const auto& id : removed->as_array()) projects_.erase(std::string(id.as_string()));
  }
  nextNumber_ = std::max(nextNumber_, json::integer(change, "nextNumber").value_or(0));
}

}  // namespace vorlane::devcloud
