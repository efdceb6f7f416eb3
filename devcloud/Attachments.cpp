#include "devcloud/Attachments.h"

#include "base/JSONArguments.h"
#include "devcloud/Accounts.h"
#include "devcloud/AttachmentCopying.h"
#include "devcloud/AttachmentReading.h"
#include "devcloud/Control.h"
#include "devcloud/Fields.h"
#include "devcloud/Identity.h"
#include "devcloud/People.h"
#include "devcloud/Router.h"
#include "devcloud/SearchWords.h"
#include "devcloud/Services.h"
#include "devcloud/Sheets.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <set>

namespace vorlane::devcloud {
namespace {

constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t defaultHits = 12;
constexpr std::int64_t mostHits = 25;
constexpr std::int64_t defaultPassages = 6;
constexpr std::int64_t mostPassages = 10;
constexpr std::size_t mostRefs = 20;

using Names = std::set<std::string, std::less<>>;

/// An array of strings that `isKnown` knows; nothing when absent.
std::optional<Names> namesField(Fields& fields, std::string_view key, bool (*isKnown)(std::string_view)) {
  const JSONArray* const list = fields.array(key);
  if (!list) return std::nullopt;
  Names names;
  for (const auto& value : *list) {
    if (!value.is_string() || !isKnown(value.get_string())) {
      throw FieldFailure(std::string(key), "holds what is none of the known ones");
    }
    names.emplace(value.get_string());
  }
  return names;
}

/// Which attachments a request may see: the person's own, and those of others
/// only as far as the request says that the person agreed.
class Reach {
 public:
  explicit Reach(Fields& fields)
      : shared_(fields.boolean("includeShared").value_or(false)),
        community_(fields.boolean("includeCommunity").value_or(false)),
        shareLink_(fields.string("shareLink").value_or("")) {}

  bool covers(const Attachment& attachment) const {
    if (attachment.kind == "own") return true;
    if (attachment.kind == "shared") return shared_;
    if (attachment.kind == "share_link") {
      return community_ && !shareLink_.empty() && attachment.shareLink == shareLink_;
    }
    return community_;
  }

 private:
  bool shared_;
  bool community_;
  std::string shareLink_;
};

bool isIn(const std::optional<Names>& names, std::string_view name) {
  return !names || names->contains(name);
}

std::string namesOf(const Attachment& each) {
  return fmt::format("{}\n{}\n{}\n{}", each.name, each.item, each.category, each.list);
}

struct Passage {
  /// How many of the words it lacks, and where it was found: what it is ranked by.
  std::size_t lacks = 0;
  std::size_t order = 0;
  JSONMap json;
};

void addPassages(const Attachment& attachment, const SearchWords& words, std::vector<Passage>& passages) {
  for (std::size_t i = 0; i < attachment.pages.size(); ++i) {
    const std::string line = words.bestLine(attachment.pages[i]);
    if (line.empty()) continue;
    passages.push_back({words.size() - words.countIn(line),
                        passages.size(),
                        {{"ref", attachment.ref},
                         {"name", attachment.name},
                         {"kind", attachment.kind},
                         {"page", i + 1},
                         {"text", line}}});
  }
}

/// The next of the numbered refs under which `lookup` finds nothing.
std::string newRef(std::int64_t& number, const AttachmentLookup& lookup) {
  std::string ref = fmt::format("att-{}", number++);
  while (lookup(ref)) ref = fmt::format("att-{}", number++);
  return ref;
}

}  // namespace

Attachments::Attachments(const Services& services)
    : people_(services.get<People>()),
      identity_(services.get<Identity>()),
      sheets_(services.get<Sheets>()),
      clock_(services.settings().clock),
      changed_(services.recorder(stateName())) {
  people_.onRemoval([this](const std::string& sub) { removeAll(sub); });
}

void Attachments::addRoutes(Router& router) {
  router.add("POST", "/api/agent/attachments/find", Scheme::secure,
             [this](const Request& request) { return find(request); });
  router.add("POST", "/api/agent/attachments/read", Scheme::secure,
             [this](const Request& request) { return read(request); });
  router.add("POST", "/api/agent/attachments/search", Scheme::secure,
             [this](const Request& request) { return search(request); });
  router.add("POST", "/api/agent/attachments/attach", Scheme::secure,
             [this](const Request& request) { return attach(request); });

  const auto listed = [this](const std::string& sub) {
    JSONArray attachments;
    for (const Attachment& each : ownedBy(sub)) attachments.push_back(each.json());
    return attachments;
  };
  const auto taken = [this](const JSONMap& body, const std::string& sub) {
    return put(attachmentFromJSON(body, sub)).json();
  };
  addOwnedRoutes(router, people_,
                 {.name = "attachments", .key = "attachments", .list = listed, .put = taken});
}

std::vector<Attachment> Attachments::ownedBy(std::string_view owner) const {
  std::vector<Attachment> owned = sampleAttachments();
  for (Attachment& each : owned) each.owner = owner;
  std::ranges::copy_if(attachments_, std::back_inserter(owned),
                       [&](const Attachment& each) { return each.owner == owner; });
  return owned;
}

const Attachment* Attachments::lookup(std::string_view owner, std::string_view ref) const {
  const auto mine = std::ranges::find_if(
      attachments_, [&](const Attachment& each) { return each.owner == owner && each.ref == ref; });
  if (mine != attachments_.end()) return &*mine;
  const auto sample = std::ranges::find(sampleAttachments(), ref, &Attachment::ref);
  return sample == sampleAttachments().end() ? nullptr : &*sample;
}

const Attachment& Attachments::put(Attachment attachment) {
  if (attachment.bytes.size() > Attachment::largestFile) throw FieldFailure("base64", "is larger than 1 MiB");
  // By way of its kept form, so that what is kept can be read again.
  attachment = attachmentFromJSON(attachment.json(), attachment.owner);
  if (attachment.ref.empty()) {
    attachment.ref = newRef(nextNumber_, [&](std::string_view ref) { return lookup(attachment.owner, ref); });
  } else {
    ++nextNumber_;
  }
  std::erase_if(attachments_, [&](const Attachment& each) {
    return each.owner == attachment.owner && each.ref == attachment.ref;
  });
  attachments_.push_back(std::move(attachment));
  const Attachment& now = attachments_.back();
  changed_({{"nextNumber", nextNumber_},
            {"list", JSONArray{JSONMap{{"owner", now.owner}, {"attachment", now.json()}}}}});
  return now;
}

void Attachments::removeAll(std::string_view owner) {
  std::erase_if(attachments_, [&](const Attachment& each) { return each.owner == owner; });
  changed_({{"removedOwner", owner}});
}

Response Attachments::find(const Request& request) const {
  const Person& person = authenticateAssistant(identity_, request);
  const JSONMap body = bodyObject(request);
  Fields fields(body);
  const SearchWords words(fields.requiredString("query"));
  const Reach reach(fields);
  const auto kinds = namesField(fields, "kinds", isAttachmentKind);
  const auto types = namesField(fields, "types", isAttachmentType);
  const std::int64_t limit = std::min(fields.integer("limit", 1, most).value_or(defaultHits), mostHits);
  JSONArray hits;
  for (const Attachment& each : ownedBy(person.sub)) {
    if (std::ssize(hits) == limit) break;
    if (!reach.covers(each) || !isIn(kinds, each.kind) || !isIn(types, each.type)) continue;
    if (words.allIn(namesOf(each))) hits.push_back(each.hit());
  }
  return Response::json(200, {{"success", true}, {"hits", std::move(hits)}});
}

Response Attachments::read(const Request& request) const {
  const Person& person = authenticateAssistant(identity_, request);
  const JSONMap body = bodyObject(request);
  const Attachment* const attachment = lookup(person.sub, Fields(body).requiredString("ref"));
  if (!attachment) throw apiError(404, "Attachment not found");
  return Response::json(200, readAttachment(*attachment, body));
}

Response Attachments::search(const Request& request) const {
  const Person& person = authenticateAssistant(identity_, request);
  const JSONMap body = bodyObject(request);
  Fields fields(body);
  const SearchWords words(fields.requiredString("query"));
  const Reach reach(fields);
  const std::int64_t limit =
      std::min(fields.integer("limit", 1, most).value_or(defaultPassages), mostPassages);

  std::vector<Passage> passages;
  if (const JSONArray* const refs = fields.array("refs")) {
    if (refs->size() > mostRefs) throw FieldFailure("refs", "holds more than 20");
    for (const auto& ref : *refs) {
      if (!ref.is_string()) throw FieldFailure("refs", "must hold strings alone");
      const Attachment* const attachment = lookup(person.sub, ref.get_string());
      if (!attachment) throw apiError(404, "Attachment not found");
      addPassages(*attachment, words, passages);
    }
  } else {
    const JSONMap& scope = fields.requiredObject("scope");
    Fields within(scope);
    const SearchWords names(within.string("nameQuery").value_or(""));
    const auto kinds = namesField(within, "kinds", isAttachmentKind);
    for (const Attachment& each : ownedBy(person.sub)) {
      if (!reach.covers(each) || !isIn(kinds, each.kind) || !names.allIn(namesOf(each))) continue;
      addPassages(each, words, passages);
    }
  }
  std::ranges::sort(passages, {}, [](const Passage& each) { return std::pair(each.lacks, each.order); });
  JSONArray best;
  for (Passage& passage : passages) {
    if (std::ssize(best) < limit) best.push_back(std::move(passage.json));
  }
  return Response::json(200, {{"success", true}, {"passages", std::move(best)}, {"budgetExhausted", false}});
}

Response Attachments::attach(const Request& request) {
  const Person& person = authenticateAssistant(identity_, request);
  const JSONMap body = bodyObject(request);
  Fields fields(body);
  const auto id = fields.integer("sheetId", 1, most);
  if (!id) throw FieldFailure("sheetId", "is missing");
  const JSONArray& sources = fields.requiredArray("sources");
  fields.refuseOthers();
  const Sheet* const sheet = sheets_.find(person.sub, *id);
  if (!sheet) throw apiError(404, "Sheet not found");

  std::int64_t number = nextNumber_;
  const AttachmentLookup known = [&](std::string_view ref) { return lookup(person.sub, ref); };
  AttachedSheet attached =
      copyAttachments(*sheet, sources, known, [&] { return newRef(number, known); }, clock_());
  attached.sheet.updatedAt = clock_();
  const std::size_t count = attached.copies.size();
  const Sheet& now = sheets_.put(std::move(attached.sheet));
  for (Attachment& copy : attached.copies) put(std::move(copy));
  return Response::json(200, {{"success", true}, {"sheet", now.json()}, {"attached", count}});
}

JSONValue Attachments::state() const {
  JSONArray list;
  for (const Attachment& each : attachments_) {
    list.push_back({{"owner", each.owner}, {"attachment", each.json()}});
  }
  return {{"nextNumber", nextNumber_}, {"list", std::move(list)}};
}

void Attachments::restore(const JSONValue& given) {
  const JSONMap& change = given.as_object();
  if (const JSONValue* list = json::find(change, "list")) {
    for (const auto& value : list->as_array()) {
      const JSONMap& entry = value.as_object();
      Attachment each =
          attachmentFromJSON(entry.at("attachment").as_object(), json::stringOr(entry, "owner"));
      std::erase_if(attachments_, [&](const Attachment& other) {
        return other.owner == each.owner && other.ref == each.ref;
      });
      attachments_.push_back(std::move(each));
    }
  }
  if (const auto owner = json::string(change, "removedOwner")) {
    std::erase_if(attachments_, [&](const Attachment& each) { return each.owner == *owner; });
  }
  nextNumber_ = std::max(nextNumber_, json::integer(change, "nextNumber").value_or(0));
}

}  // namespace vorlane::devcloud
