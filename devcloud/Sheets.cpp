#include "devcloud/Sheets.h"

#include "base/Identifiers.h"
#include "base/JSONArguments.h"
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

constexpr std::int64_t firstID = 1000;
constexpr std::int64_t lastID = std::numeric_limits<std::int64_t>::max() - 1;
/// Room is left for the answers and the state file, which nest a sheet some levels deeper.
constexpr std::size_t deepestDocument = jsonDepthLimit - 16;

bool deeperThan(const JSONValue& value, std::size_t levels) {
  if (const JSONArray* array = value.if_array()) {
    if (levels == 0) return true;
    return std::ranges::any_of(*array, [&](const auto& element) { return deeperThan(element, levels - 1); });
  }
  if (const JSONMap* object = value.if_object()) {
    if (levels == 0) return true;
    return std::ranges::any_of(*object,
                               [&](const auto& entry) { return deeperThan(entry.value(), levels - 1); });
  }
  return false;
}

void checkDepth(const JSONMap& map, const char* field) {
  for (const auto& entry : map) {
    if (deeperThan(entry.value(), deepestDocument)) {
      throw FieldFailure(field, fmt::format("nests deeper than {} levels", deepestDocument));
    }
  }
}

JSONMap kept(const Sheet& sheet) {
  return {{"owner", sheet.owner}, {"updates", sheet.updates}, {"sheet", sheet.json()}};
}

}  // namespace

JSONMap Sheet::summary() const {
  return {{"id", id},
          {"name", name},
          {"type", type},
          {"createdAt", webDateText(createdAt)},
          {"updatedAt", webDateText(updatedAt)}};
}

JSONMap Sheet::json() const {
  JSONMap map = summary();
  map["sourceName"] = sourceName;
  map["data"] = data;
  map["metadata"] = metadata;
  return map;
}

Sheet sheetFromJSON(const JSONMap& map, std::string owner) {
  Fields fields(map);
  Sheet sheet;
  sheet.owner = std::move(owner);
  sheet.id = fields.integer("id", firstID, lastID).value_or(0);
  sheet.name = fields.requiredString("name");
  sheet.type = fields.string("type").value_or(sheet.type);
  sheet.sourceName = fields.string("sourceName").value_or(sheet.name);
  sheet.data = fields.requiredObject("data");
  if (const JSONMap* metadata = fields.object("metadata")) sheet.metadata = *metadata;
  sheet.createdAt = fields.date("createdAt").value_or(Date{});
  sheet.updatedAt = fields.date("updatedAt").value_or(Date{});
  fields.refuseOthers();
  return sheet;
}

Sheets::Sheets(const Services& services)
    : people_(services.get<People>()),
      identity_(services.get<Identity>()),
      clock_(services.settings().clock),
      changed_(services.recorder(stateName())) {
  people_.onRemoval([this](const std::string& sub) { removeAll(sub); });
}

void Sheets::addRoutes(Router& router) {
  constexpr std::string_view all = "/api/user/sheets";
  constexpr std::string_view one = "/api/user/sheets/{id}";
  router.add("GET", all, Scheme::secure, [this](const Request& request) { return list(request); });
  router.add("POST", all, Scheme::secure, [this](const Request& request) { return create(request); });
  router.add("GET", one, Scheme::secure, [this](const Request& request) { return read(request); });
  router.add("PUT", one, Scheme::secure, [this](const Request& request) { return replace(request); });
  router.add("DELETE", one, Scheme::secure, [this](const Request& request) { return erase(request); });

  const auto listed = [this](const std::string& sub) {
    JSONArray sheets;
    for (const Sheet& sheet : ownedBy(sub)) {
      JSONMap map = sheet.json();
      map["updates"] = sheet.updates;
      sheets.push_back(std::move(map));
    }
    return sheets;
  };
  const auto taken = [this](const JSONMap& body, const std::string& sub) {
    return put(sheetFromJSON(body, sub)).json();
  };
  addOwnedRoutes(router, people_, {.name = "sheets", .key = "sheets", .list = listed, .put = taken});
  router.add("DELETE", "/__control/sheets/{sub}/{id}", Scheme::both, [this](const Request& request) {
    const auto id = decimalInteger(request.parameter("id"));
    return doneOr404(id && remove(people_.requested(request).sub, *id), "there is no such sheet");
  });
}

std::vector<Sheet> Sheets::ownedBy(std::string_view owner) const {
  std::vector<Sheet> owned;
  for (const auto& [id, sheet] : sheets_) {
    if (sheet.owner == owner) owned.push_back(sheet);
  }
  std::ranges::sort(owned, std::ranges::greater(),
                    [](const Sheet& sheet) { return std::pair(sheet.updatedAt, sheet.id); });
  return owned;
}

const Sheet& Sheets::put(Sheet sheet) {
  checkDepth(sheet.data, "data");
  checkDepth(sheet.metadata, "metadata");
  if (sheet.id == 0) sheet.id = nextID_;
  if (sheet.id < firstID) throw Failure(fmt::format("sheet ids begin at {}", firstID));
  const auto found = sheets_.find(sheet.id);
  const Sheet* const known = found == sheets_.end() ? nullptr : &found->second;
  if (known && known->owner != sheet.owner) {
    throw Failure(fmt::format("sheet {} is somebody else's", sheet.id));
  }
  if (sheet.updatedAt == Date{}) sheet.updatedAt = clock_();
  if (sheet.createdAt == Date{}) sheet.createdAt = known ? known->createdAt : sheet.updatedAt;
  const std::int64_t id = sheet.id;
  nextID_ = std::max(nextID_, id + 1);
  const Sheet& now = sheets_[id] = std::move(sheet);
  changed_({{"nextId", nextID_}, {"list", JSONArray{kept(now)}}});
  return now;
}

const Sheet* Sheets::find(std::string_view owner, std::int64_t id) const {
  const auto found = sheets_.find(id);
  return found == sheets_.end() || found->second.owner != owner ? nullptr : &found->second;
}

bool Sheets::remove(std::string_view owner, std::int64_t id) {
  if (!find(owner, id)) return false;
  sheets_.erase(id);
  changed_({{"removed", JSONArray{id}}});
  return true;
}

void Sheets::removeAll(std::string_view owner) {
  JSONArray removed;
  for (const auto& [id, sheet] : sheets_) {
    if (sheet.owner == owner) removed.emplace_back(id);
  }
  std::erase_if(sheets_, [&](const auto& entry) { return entry.second.owner == owner; });
  changed_({{"removed", std::move(removed)}});
}

Response Sheets::list(const Request& request) const {
  JSONArray sheets;
  for (const Sheet& sheet : ownedBy(identity_.authenticate(request).sub)) sheets.push_back(sheet.summary());
  return Response::json(200, {{"success", true}, {"sheets", std::move(sheets)}});
}

Response Sheets::create(const Request& request) {
  const Person& person = identity_.authenticate(request);
  const JSONMap body = bodyObject(request);
  Fields fields(body);
  Sheet sheet;
  sheet.owner = person.sub;
  sheet.name = fields.requiredString("name");
  sheet.type = fields.string("type").value_or(sheet.type);
  sheet.sourceName = fields.string("sourceName").value_or(sheet.name);
  sheet.data = fields.requiredObject("data");
  if (const JSONMap* metadata = fields.object("metadata")) sheet.metadata = *metadata;
  return Response::json(201, {{"success", true}, {"sheet", put(std::move(sheet)).json()}});
}

const Sheet& Sheets::requested(const Request& request) const {
  const Person& person = identity_.authenticate(request);
  const auto id = decimalInteger(request.parameter("id"));
  // Somebody else's sheet answers like none at all.
  const Sheet* const sheet = id ? find(person.sub, *id) : nullptr;
  if (!sheet) throw apiError(404, "Sheet not found");
  return *sheet;
}

Response Sheets::read(const Request& request) const {
  return Response::json(200, {{"success", true}, {"sheet", requested(request).json()}});
}

Response Sheets::replace(const Request& request) {
  Sheet sheet = requested(request);
  const JSONMap body = bodyObject(request);
  Fields fields(body);
  const JSONMap* const data = fields.object("data");
  const auto name = fields.string("name");
  if (!data && !name) throw FieldFailure("data", "is missing, and so is \"name\"");
  if (name && name->empty()) throw FieldFailure("name", "must not be empty");
  if (name) sheet.name = *name;
  if (data) sheet.data = *data;
  sheet.updatedAt = clock_();
  ++sheet.updates;
  return Response::json(200, {{"success", true}, {"sheet", put(std::move(sheet)).summary()}});
}

Response Sheets::erase(const Request& request) {
  const Sheet& sheet = requested(request);
  remove(std::string(sheet.owner), sheet.id);
  return Response::json(200, {{"success", true}});
}

JSONValue Sheets::state() const {
  JSONArray list;
  for (const auto& [id, sheet] : sheets_) list.push_back(kept(sheet));
  return {{"nextId", nextID_}, {"list", std::move(list)}};
}

void Sheets::restore(const JSONValue& given) {
  const JSONMap& change = given.as_object();
  if (const JSONValue* list = json::find(change, "list")) {
    for (const auto& value : list->as_array()) {
      const JSONMap& entry = value.as_object();
      Sheet sheet = sheetFromJSON(entry.at("sheet").as_object(), json::stringOr(entry, "owner"));
      sheet.updates = json::integer(entry, "updates").value_or(0);
      sheets_.insert_or_assign(sheet.id, std::move(sheet));
    }
  }
  if (const JSONValue* removed = json::find(change, "removed")) {
    for (const auto& id : removed->as_array()) sheets_.erase(id.as_int64());
  }
  nextID_ = std::max(nextID_, json::integer(change, "nextId").value_or(0));
}

}  // namespace vorlane::devcloud
