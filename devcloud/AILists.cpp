#include "devcloud/AILists.h"

#include "base/JSONArguments.h"
#include "devcloud/Accounts.h"
#include "devcloud/Control.h"
#include "devcloud/Fields.h"
#include "devcloud/Identity.h"
#include "devcloud/People.h"
#include "devcloud/Router.h"
#include "devcloud/SearchWords.h"
#include "devcloud/Services.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>

namespace vorlane::devcloud {
namespace {

constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max() - 1;
constexpr std::int64_t defaultLists = 5;
constexpr std::int64_t mostLists = 10;
constexpr std::int64_t defaultItems = 60;
constexpr std::int64_t mostItems = 150;
constexpr std::size_t topCategories = 3;
/// Bytes of an item's note that a reader gets.
constexpr std::size_t noteLength = 160;

std::string text(Fields& fields, std::string_view key) {
  auto value = fields.string(key);
  if (!value) throw FieldFailure(std::string(key), "is missing");
  return std::move(*value);
}

void checkItem(const JSONValue& value, const std::string& place) {
  if (!value.is_object()) throw FieldFailure(place, "must be an object");
  Fields fields(value.get_object());
  try {
    fields.requiredString("name");
    for (const char* key : {"quantity", "price"}) {
      const JSONValue* const number = fields.value(key);
      if (number && !json::number(*number)) throw FieldFailure(key, "must be a number");
    }
    fields.string("notes");
    fields.refuseOthers();
  } catch (const FieldFailure& failure) {
    throw failure.within(place);
  }
}

void checkCategory(const JSONValue& value, const std::string& place) {
  if (!value.is_object()) throw FieldFailure(place, "must be an object");
  Fields fields(value.get_object());
  try {
    text(fields, "name");
    const JSONArray& items = fields.requiredArray("items");
    for (std::size_t i = 0; i < items.size(); ++i) checkItem(items[i], fmt::format("items[{}]", i));
    fields.refuseOthers();
  } catch (const FieldFailure& failure) {
    throw failure.within(place);
  }
}

const JSONArray& itemsOf(const JSONValue& category) {
  return category.get_object().at("items").get_array();
}

std::size_t itemCount(const AIList& list) {
  std::size_t count = 0;
  for (const auto& category : list.categories) count += itemsOf(category).size();
  return count;
}

JSONMap kept(const AIList& list) {
  return {{"owner", list.owner}, {"list", list.json()}};
}

JSONMap found(const AIList& list) {
  JSONArray top;
  for (const auto& category : list.categories) {
    if (top.size() < topCategories) top.push_back(category.get_object().at("name"));
  }
  return {{"id", list.id},
          {"name", list.name},
          {"createdAt", webDateText(list.createdAt)},
          {"itemCount", itemCount(list)},
          {"topCategories", std::move(top)}};
}

/// The first `limit` items in their categories, notes cut short.
JSONArray excerpt(const AIList& list, std::size_t limit) {
  JSONArray categories;
  for (const auto& category : list.categories) {
    JSONArray items;
    for (const auto& each : itemsOf(category)) {
      if (limit == 0) break;
      --limit;
      JSONMap item = each.get_object();
      if (const auto notes = json::string(item, "notes")) item["notes"] = shortened(*notes, noteLength);
      items.push_back(std::move(item));
    }
    categories.push_back({{"name", category.get_object().at("name")}, {"items", std::move(items)}});
  }
  return categories;
}

}  // namespace

JSONMap AIList::json() const {
  return {{"id", id},           {"name", name},
          {"prompt", prompt},   {"categories", categories},
          {"sheetId", sheetID}, {"createdAt", webDateText(createdAt)}};
}

AIList aiListFromJSON(const JSONMap& map, std::string owner) {
  Fields fields(map);
  AIList list;
  list.owner = std::move(owner);
  list.id = fields.integer("id", 1, most).value_or(0);
  list.name = text(fields, "name");
  list.prompt = text(fields, "prompt");
  list.sheetID = text(fields, "sheetId");
  list.categories = fields.requiredArray("categories");
  for (std::size_t i = 0; i < list.categories.size(); ++i) {
    checkCategory(list.categories[i], fmt::format("categories[{}]", i));
  }
  list.createdAt = fields.date("createdAt").value_or(Date{});
  fields.refuseOthers();
  return list;
}

AILists::AILists(const Services& services)
    : people_(services.get<People>()),
      identity_(services.get<Identity>()),
      clock_(services.settings().clock),
      changed_(services.recorder(stateName())) {
  people_.onRemoval([this](const std::string& sub) { removeAll(sub); });
}

void AILists::addRoutes(Router& router) {
  router.add("POST", "/api/agent/ai-lists/search", Scheme::secure,
             [this](const Request& request) { return search(request); });
  router.add("POST", "/api/agent/ai-lists/get", Scheme::secure,
             [this](const Request& request) { return get(request); });
  router.add("POST", "/api/agent/ai-lists/record", Scheme::secure,
             [this](const Request& request) { return record(request); });

  const auto listed = [this](const std::string& sub) {
    JSONArray lists;
    for (const AIList& list : ownedBy(sub)) lists.push_back(list.json());
    return lists;
  };
  const auto taken = [this](const JSONMap& body, const std::string& sub) {
    return add(aiListFromJSON(body, sub)).json();
  };
  addOwnedRoutes(router, people_, {.name = "ai-lists", .key = "lists", .list = listed, .put = taken});
}

std::vector<AIList> AILists::ownedBy(std::string_view owner) const {
  std::vector<AIList> owned;
  for (const auto& [id, list] : lists_) {
    if (list.owner == owner) owned.push_back(list);
  }
  std::ranges::sort(owned, std::ranges::greater(),
                    [](const AIList& list) { return std::pair(list.createdAt, list.id); });
  return owned;
}

const AIList& AILists::add(AIList list) {
  const std::int64_t id = list.id = nextID_;
  if (list.createdAt == Date{}) list.createdAt = clock_();
  // By way of its kept form, so that what is kept can be read again.
  list = aiListFromJSON(list.json(), list.owner);
  ++nextID_;
  const AIList& now = lists_[id] = std::move(list);
  changed_({{"nextId", nextID_}, {"list", JSONArray{kept(now)}}});
  return now;
}

void AILists::removeAll(std::string_view owner) {
  std::erase_if(lists_, [&](const auto& entry) { return entry.second.owner == owner; });
  changed_({{"removedOwner", owner}});
}

Response AILists::search(const Request& request) const {
  const Person& person = authenticateAssistant(identity_, request);
  const JSONMap body = bodyObject(request);
  Fields fields(body);
  const SearchWords words(text(fields, "query"));
  const std::int64_t limit = std::min(fields.integer("limit", 1, most).value_or(defaultLists), mostLists);
  JSONArray lists;
  for (const AIList& list : ownedBy(person.sub)) {
    if (std::ssize(lists) == limit) break;
    if (words.allIn(list.name + "\n" + list.prompt)) lists.push_back(found(list));
  }
  return Response::json(200, {{"success", true}, {"lists", std::move(lists)}});
}

Response AILists::get(const Request& request) const {
  const Person& person = authenticateAssistant(identity_, request);
  const JSONMap body = bodyObject(request);
  Fields fields(body);
  const auto id = fields.integer("id", 1, most);
  if (!id) throw FieldFailure("id", "is missing");
  const std::int64_t limit = std::min(fields.integer("maxItems", 1, most).value_or(defaultItems), mostItems);
  const auto known = lists_.find(*id);
  if (known == lists_.end() || known->second.owner != person.sub) throw apiError(404, "List not found");
  const AIList& list = known->second;
  JSONMap answer = found(list);
  answer.erase("topCategories");
  answer["prompt"] = list.prompt;
  answer["categories"] = excerpt(list, static_cast<std::size_t>(limit));
  answer["truncated"] = itemCount(list) > static_cast<std::size_t>(limit);
  return Response::json(200, {{"success", true}, {"list", std::move(answer)}});
}

Response AILists::record(const Request& request) {
  const Person& person = authenticateAssistant(identity_, request);
  AIList list = aiListFromJSON(bodyObject(request), person.sub);
  list.createdAt = {};
  return Response::json(201, {{"success", true}, {"id", add(std::move(list)).id}});
}

JSONValue AILists::state() const {
  JSONArray list;
  for (const auto& [id, each] : lists_) list.push_back(kept(each));
  return {{"nextId", nextID_}, {"list", std::move(list)}};
}

void AILists::restore(const JSONValue& given) {
  const JSONMap& change = given.as_object();
  if (const JSONValue* list = json::find(change, "list")) {
    for (const auto& value : list->as_array()) {
      const JSONMap& entry = value.as_object();
      AIList each = aiListFromJSON(entry.at("list").as_object(), json::stringOr(entry, "owner"));
      const std::int64_t id = each.id;
      lists_.insert_or_assign(id, std::move(each));
    }
  }
  if (const auto owner = json::string(change, "removedOwner")) {
    std::erase_if(lists_, [&](const auto& entry) { return entry.second.owner == *owner; });
  }
  nextID_ = std::max(nextID_, json::integer(change, "nextId").value_or(0));
}

}  // namespace vorlane::devcloud
