#include "devcloud/People.h"

#include "devcloud/Control.h"
#include "devcloud/Fields.h"
#include "devcloud/Router.h"
#include "devcloud/Services.h"

#include <fmt/format.h>

namespace vorlane::devcloud {
namespace {

constexpr std::int64_t longestLifetime = 10LL * 365 * 86400;

void checkStrings(const JSONArray& array, const std::string& field) {
  for (const auto& element : array) {
    if (!element.is_string()) throw FieldFailure(field, "must hold strings alone");
  }
}

void checkGrant(const JSONValue& value, const std::string& place) {
  const JSONMap* grant = value.if_object();
  if (!grant) throw FieldFailure(place, "must be an object");
  Fields fields(*grant);
  try {
    fields.requiredString("product");
    fields.requiredString("section");
    const JSONArray* actions = fields.array("actions");
    if (!actions) throw FieldFailure("actions", "is missing");
    checkStrings(*actions, "actions");
    if (const JSONMap* scope = fields.object("scope")) {
      for (const auto& entry : *scope) {
        if (!entry.value().is_string()) throw FieldFailure("scope", "must hold strings alone");
      }
    }
    // Any text passes: a test may want a date that does not parse.
    fields.string("startsAt");
    fields.string("expiresAt");
    fields.refuseOthers();
  } catch (const FieldFailure& failure) {
    throw failure.within(place);
  }
}

template <class T>
void assign(T& target, const std::optional<T>& value) {
  if (value) target = *value;
}

}  // namespace

void Person::update(const JSONMap& map) {
  Person next = *this;
  Fields fields(map);
  next.sub = fields.requiredString("sub");
  assign(next.email, fields.string("email"));
  assign(next.name, fields.string("name"));
  assign(next.mcpAccess, fields.boolean("mcpAccess"));
  assign(next.admin, fields.boolean("admin"));
  assign(next.role, fields.string("role"));
  if (const auto owner = fields.boolean("isOwner")) next.isOwner = owner;
  if (const JSONArray* list = fields.array("grants")) {
    for (std::size_t i = 0; i < list->size(); ++i) checkGrant((*list)[i], fmt::format("grants[{}]", i));
    next.grants = *list;
  }
  assign(next.tokenLifetime, fields.integer("tokenLifetime", 0, longestLifetime));
  assign(next.snapshotLifetime, fields.integer("snapshotLifetime", 0, longestLifetime));
  assign(next.rotatesRefreshTokens, fields.boolean("rotatesRefreshTokens"));
  assign(next.cloudProjectWrite, fields.boolean("cloudProjectWrite"));
  assign(next.gone, fields.boolean("gone"));
  fields.refuseOthers();
  *this = std::move(next);
}

JSONMap Person::json() const {
  JSONMap map{{"sub", sub},
              {"email", email},
              {"name", name},
              {"mcpAccess", mcpAccess},
              {"admin", admin},
              {"role", role},
              {"grants", grants},
              {"tokenLifetime", tokenLifetime},
              {"snapshotLifetime", snapshotLifetime},
              {"rotatesRefreshTokens", rotatesRefreshTokens},
              {"cloudProjectWrite", cloudProjectWrite},
              {"gone", gone}};
  if (isOwner) map["isOwner"] = *isOwner;
  return map;
}

People::People(const Services& services) : changed_(services.recorder(stateName())) {}

void People::addRoutes(Router& router) {
  router.add("GET", "/__control/people", Scheme::both,
             [this](const Request&) { return Response::json(200, {{"people", state()}}); });
  router.add("POST", "/__control/people", Scheme::both, [this](const Request& request) {
    return Response::json(200, update(bodyObject(request)).json());
  });
  router.add("DELETE", "/__control/people/{sub}", Scheme::both, [this](const Request& request) {
    remove(requested(request).sub);
    return done();
  });
}

const Person& People::requested(const Request& request) const {
  const Person* const person = find(request.parameter("sub"));
  if (!person) throw apiError(404, fmt::format("there is no person \"{}\"", request.parameter("sub")));
  return *person;
}

const Person* People::find(std::string_view sub) const {
  const auto found = people_.find(sub);
  return found == people_.end() ? nullptr : &found->second;
}

void People::put(Person person) {
  std::string sub = person.sub;
  people_.insert_or_assign(std::move(sub), std::move(person));
  changed_(state());
}

const Person& People::update(const JSONMap& fields) {
  const std::string sub = Fields(fields).requiredString("sub");
  const Person* known = find(sub);
  Person person = known ? *known : Person{};
  person.update(fields);
  put(std::move(person));
  return people_.find(sub)->second;
}

bool People::remove(std::string_view sub) {
  const auto found = people_.find(sub);
  if (found == people_.end()) return false;
  for (const auto& action : onRemoval_) action(found->first);
  people_.erase(found);
  changed_(state());
  return true;
}

void People::onRemoval(std::function<void(const std::string& sub)> action) {
  onRemoval_.push_back(std::move(action));
}

JSONValue People::state() const {
  JSONArray state;
  for (const auto& [sub, person] : people_) state.push_back(person.json());
  return state;
}

void People::restore(const JSONValue& state) {
  people_.clear();
  for (const auto& value : state.as_array()) {
    Person person;
    person.update(value.as_object());
    people_.insert_or_assign(person.sub, person);
  }
}

}  // namespace vorlane::devcloud
