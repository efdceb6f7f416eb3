#include "access/SuiteAdminSnapshot.h"

#include "base/Failure.h"
#include "base/JSON.h"
#include "base/JSONArguments.h"

#include <algorithm>
#include <utility>

namespace vorlane {
namespace {

[[noreturn]] void refuse(std::string_view key, std::string_view what) {
  throw Failure("admin snapshot: \"" + std::string(key) + "\" is no " + std::string(what));
}

const JSONValue& required(const JSONMap& map, std::string_view key) {
  const auto* value = json::find(map, key);
  if (value == nullptr) throw Failure("admin snapshot: \"" + std::string(key) + "\" is missing");
  return *value;
}

std::string text(const JSONValue& value, std::string_view key) {
  if (!value.is_string()) refuse(key, "string");
  return std::string(value.get_string());
}

std::string text(const JSONMap& map, std::string_view key) {
  return text(required(map, key), key);
}

const JSONArray& list(const JSONMap& map, std::string_view key) {
  const auto& value = required(map, key);
  if (!value.is_array()) refuse(key, "array");
  return value.get_array();
}

std::optional<std::string> optionalText(const JSONMap& map, std::string_view key) {
  const auto* value = json::find(map, key);
  if (value == nullptr || value->is_null()) return std::nullopt;
  return text(*value, key);
}

std::optional<std::map<std::string, std::string>> scope(const JSONMap& map) {
  const auto* value = json::find(map, "scope");
  if (value == nullptr || value->is_null()) return std::nullopt;
  if (!value->is_object()) refuse("scope", "object");
  std::map<std::string, std::string> entries;
  for (const auto& [key, entry] : value->get_object()) entries.emplace(key, text(entry, key));
  return entries;
}

SuiteAdminSnapshot::Grant grant(const JSONValue& value) {
  if (!value.is_object()) refuse("grants", "array of objects");
  const auto& map = value.get_object();
  SuiteAdminSnapshot::Grant grant{.product = text(map, "product"), .section = text(map, "section")};
  for (const auto& action : list(map, "actions")) grant.actions.push_back(text(action, "actions"));
  grant.scope = scope(map);
  grant.startsAt = optionalText(map, "startsAt");
  grant.expiresAt = optionalText(map, "expiresAt");
  return grant;
}

}  // namespace

SuiteAdminSnapshot SuiteAdminSnapshot::decode(std::string_view body) {
  const auto map = parseJSONMap(body, "admin snapshot: not a JSON object");
  SuiteAdminSnapshot snapshot;
  snapshot.actorId = text(map, "actorId");
  snapshot.role = text(map, "role");
  const auto& isOwner = required(map, "isOwner");
  if (!isOwner.is_bool()) refuse("isOwner", "boolean");
  snapshot.isOwner = isOwner.get_bool();
  snapshot.policyVersion = text(map, "policyVersion");
  snapshot.validUntil = text(map, "validUntil");
  for (const auto& value : list(map, "grants")) snapshot.grants.push_back(grant(value));
  return snapshot;
}

bool SuiteAdminSnapshot::allows(const AdminAccessRequirement& requirement, Date now) const {
  if (actorId.empty() || policyVersion.empty()) return false;
  const auto end = dateFromISO8601(validUntil);
  if (!end || *end <= now) return false;
  if (role == "owner" && isOwner) return true;
  // A manager who is flagged owner is a contradiction, and grants nothing.
  if (role != "manager" || isOwner) return false;
  return std::ranges::any_of(grants, [&](const Grant& grant) { return grant.matches(requirement, now); });
}

bool SuiteAdminSnapshot::Grant::matches(const AdminAccessRequirement& requirement, Date now) const {
  if (product != requirement.product || section != requirement.section) return false;
  if (std::ranges::find(actions, requirement.action) == actions.end()) return false;
  if (startsAt) {
    const auto start = dateFromISO8601(*startsAt);
    if (!start || *start > now) return false;
  }
  if (expiresAt) {
    const auto end = dateFromISO8601(*expiresAt);
    if (!end || *end <= now) return false;
  }
  // A listing has no concrete object to compare.
  if (requirement.discoveryOnly || !scope) return true;
  return std::ranges::all_of(*scope, [&](const auto& entry) {
    const auto asked = requirement.scope.find(entry.first);
    return !entry.second.empty() && asked != requirement.scope.end() && asked->second == entry.second;
  });
}

}  // namespace vorlane
