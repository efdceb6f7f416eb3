#include "devcloud/AttachmentCopying.h"

#include "base/JSONArguments.h"
#include "devcloud/Fields.h"
#include "devcloud/SheetItems.h"

#include <fmt/format.h>

#include <map>
#include <tuple>

namespace vorlane::devcloud {
namespace {

constexpr std::size_t mostSources = 20;

/// Category, subcategory and name.
using NewItem = std::tuple<std::string, std::string, std::string>;

struct Source {
  std::string ref;
  std::string name;
  /// Empty: it goes on a new item.
  std::string itemID;
  NewItem newItem;
};

Source sourceFrom(const JSONMap& map) {
  Fields fields(map);
  Source source;
  source.ref = fields.requiredString("ref");
  source.name = fields.string("name").value_or(source.ref);
  const JSONMap* const newItem = fields.object("newItem");
  if (newItem) {
    Fields inner(*newItem);
    try {
      source.newItem = {inner.requiredString("category"), inner.string("subcategory").value_or(""),
                        inner.requiredString("name")};
      inner.refuseOthers();
    } catch (const FieldFailure& failure) {
      throw failure.within("newItem");
    }
    if (fields.value("itemId")) throw FieldFailure("newItem", "stands beside \"itemId\"");
  } else {
    source.itemID = fields.requiredString("itemId");
  }
  fields.refuseOthers();
  return source;
}

std::vector<Source> sourcesFrom(const JSONArray& list) {
  if (list.empty() || list.size() > mostSources) throw FieldFailure("sources", "must name 1 to 20 sources");
  std::vector<Source> sources;
  for (std::size_t i = 0; i < list.size(); ++i) {
    const std::string place = fmt::format("sources[{}]", i);
    if (!list[i].is_object()) throw FieldFailure(place, "must be an object");
    try {
      sources.push_back(sourceFrom(list[i].get_object()));
    } catch (const FieldFailure& failure) {
      throw failure.within(place);
    }
  }
  return sources;
}

/// Empty when the source can be copied.
std::string obstacle(const Source& source, JSONMap& document, const AttachmentLookup& lookup) {
  if (!lookup(source.ref)) return "There is no such attachment.";
  if (source.itemID.empty()) return "";
  const std::size_t count = findSheetItems(document, source.itemID).size();
  if (count == 0) return fmt::format("There is no item \"{}\" in this sheet.", source.itemID);
  return count == 1 ? "" : fmt::format("Several items are called \"{}\"; give the id.", source.itemID);
}

/// Throws the refusal of the whole when one of the sources cannot be copied.
void refuseWhatIsMissing(const std::vector<Source>& sources, JSONMap& document,
                         const AttachmentLookup& lookup) {
  JSONArray failures;
  JSONArray entries;
  for (const Source& source : sources) {
    const std::string error = obstacle(source, document, lookup);
    entries.push_back({{"ref", source.ref}, {"name", source.name}, {"attached", false}});
    if (!error.empty()) failures.push_back({{"name", source.name}, {"error", error}});
  }
  if (failures.empty()) return;
  const std::string text =
      fmt::format("Nothing was attached: {} of {} could not be.", failures.size(), sources.size());
  throw HTTPError(422, {{"success", false},
                        {"error", text},
                        {"failures", std::move(failures)},
                        {"entries", std::move(entries)}});
}

JSONMap attachedForm(const Attachment& original, const std::string& ref, Date now) {
  JSONMap map{{"id", ref},
              {"ref", ref},
              {"name", original.name},
              {"type", original.type},
              {"addedAt", webDateText(now)}};
  if (!original.url.empty()) map["url"] = original.url;
  // What comes from somebody else keeps a record of where it was.
  if (original.kind != "own") map["source"] = {{"kind", original.kind}, {"list", original.list}};
  return map;
}

}  // namespace

AttachedSheet copyAttachments(Sheet sheet, const JSONArray& list, const AttachmentLookup& lookup,
                              const RefMaker& newRef, Date now) {
  const std::vector<Source> sources = sourcesFrom(list);
  refuseWhatIsMissing(sources, sheet.data, lookup);

  AttachedSheet result{.sheet = std::move(sheet), .copies = {}};
  JSONMap& document = result.sheet.data;
  // Sources that describe the same new item share it.
  std::map<NewItem, std::string> made;
  for (const Source& source : sources) {
    SheetItem place;
    if (!source.itemID.empty()) {
      place = findSheetItems(document, source.itemID).front();
    } else if (const auto known = made.find(source.newItem); known != made.end()) {
      place = findSheetItems(document, known->second).front();
    } else {
      const auto& [category, subcategory, name] = source.newItem;
      place = addSheetItem(document, category, subcategory, name);
      made[source.newItem] = json::stringOr(*place.item, "id");
    }
    Attachment copy = *lookup(source.ref);
    copy.owner = result.sheet.owner;
    copy.ref = newRef();
    JSONValue& attached = (*place.item)["attachments"];
    if (!attached.is_array()) attached = JSONArray();
    attached.get_array().push_back(attachedForm(copy, copy.ref, now));
    copy.kind = "own";
    copy.shareLink.clear();
    copy.list = result.sheet.name;
    copy.category = place.category;
    copy.item = json::stringOr(*place.item, "name");
    result.copies.push_back(std::move(copy));
  }
  return result;
}

}  // namespace vorlane::devcloud
