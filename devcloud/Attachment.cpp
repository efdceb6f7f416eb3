#include "devcloud/Attachment.h"

#include "base/Encodings.h"
#include "base/Text.h"
#include "devcloud/Fields.h"
#include "devcloud/SampleFiles.h"

#include <algorithm>
#include <array>

namespace vorlane::devcloud {
namespace {

constexpr std::array<std::string_view, 5> kinds{"own", "shared", "community", "featured", "share_link"};

struct TypeName {
  std::string_view name;
  std::string_view mimeType;
};

constexpr std::array types{TypeName{"pdf", "application/pdf"},
                           TypeName{"image", "image/png"},
                           TypeName{"doc", "application/msword"},
                           TypeName{"text", "text/plain"},
                           TypeName{"link", ""},
                           TypeName{"other", "application/octet-stream"}};

std::vector<std::string> pagesField(Fields& fields) {
  std::vector<std::string> pages;
  if (const JSONArray* list = fields.array("pages")) {
    for (const auto& page : *list) {
      if (!page.is_string()) throw FieldFailure("pages", "must hold strings alone");
      pages.emplace_back(page.get_string());
    }
  }
  return pages;
}

std::string bytesField(Fields& fields) {
  const auto text = fields.string("base64");
  auto bytes = base64Decoded(text.value_or(""));
  if (!bytes) throw FieldFailure("base64", "must be base64");
  return std::move(*bytes);
}

std::string oneOf(std::optional<std::string> text, std::string_view key, std::string fallback,
                  bool (*isKnown)(std::string_view)) {
  if (!text) return fallback;
  if (!isKnown(*text)) throw FieldFailure(std::string(key), "is none of the known ones");
  return std::move(*text);
}

Attachment sample(std::string name, std::string type, std::string item) {
  Attachment attachment;
  attachment.ref = "sample-" + type;
  attachment.name = std::move(name);
  attachment.type = std::move(type);
  attachment.list = "Camera Package";
  attachment.category = "Camera";
  attachment.item = std::move(item);
  attachment.mimeType = std::ranges::find(types, attachment.type, &TypeName::name)->mimeType;
  return attachment;
}

std::vector<Attachment> makeSamples() {
  Attachment notes = sample("lut-notes.txt", "text", "FX6 LUT set");
  notes.bytes =
      "LUT notes for the FX6\n"
      "Load the show LUT into slot 3 before the first setup.\n"
      "Night exteriors: expose one stop over and use the cool variant.\n";
  notes.pages = {notes.bytes};

  Attachment guide = sample("fx6-quick-guide.pdf", "pdf", "FX6 body");
  guide.pages = {
      "FX6 quick guide\nPower: BP-U60 batteries last about two hours.\n"
      "Media: two CFexpress Type A cards, recorded in parallel.",
      "Frame rates\nUp to 120 frames per second in 4K.\nAbove 60 frames per second the image is cropped by "
      "ten percent."};
  guide.bytes = pdfWithPages(guide.pages);

  Attachment chart = sample("color-chart.png", "image", "Colour chart");
  chart.bytes = samplePNG();
  return {std::move(notes), std::move(guide), std::move(chart)};
}

}  // namespace

bool isAttachmentKind(std::string_view kind) {
  return std::ranges::find(kinds, kind) != kinds.end();
}

bool isAttachmentType(std::string_view type) {
  return std::ranges::find(types, type, &TypeName::name) != types.end();
}

JSONMap Attachment::hit() const {
  JSONMap map{{"ref", ref},   {"name", name},         {"type", type}, {"kind", kind},
              {"list", list}, {"category", category}, {"item", item}};
  if (!url.empty()) map["url"] = url;
  return map;
}

JSONMap Attachment::json() const {
  JSONMap map = hit();
  map["shareLink"] = shareLink;
  map["mimeType"] = mimeType;
  map["base64"] = base64Encoded(bytes);
  map["pages"] = JSONArray(pages.begin(), pages.end());
  return map;
}

Attachment attachmentFromJSON(const JSONMap& map, std::string owner) {
  Fields fields(map);
  Attachment attachment;
  attachment.owner = std::move(owner);
  attachment.ref = fields.string("ref").value_or("");
  attachment.name = fields.requiredString("name");
  attachment.url = fields.string("url").value_or("");
  attachment.type =
      oneOf(fields.string("type"), "type", attachment.url.empty() ? "text" : "link", isAttachmentType);
  attachment.kind = oneOf(fields.string("kind"), "kind", "own", isAttachmentKind);
  attachment.shareLink = fields.string("shareLink").value_or("");
  attachment.list = fields.string("list").value_or("");
  attachment.category = fields.string("category").value_or("");
  attachment.item = fields.string("item").value_or("");
  const auto* const type = std::ranges::find(types, attachment.type, &TypeName::name);
  attachment.mimeType = fields.string("mimeType").value_or(std::string(type->mimeType));
  attachment.bytes = bytesField(fields);
  attachment.pages = pagesField(fields);
  if (const auto text = fields.string("text")) {
    attachment.bytes = *text;
    attachment.pages = {*text};
  } else if (attachment.type == "pdf" && attachment.bytes.empty()) {
    attachment.bytes = pdfWithPages(attachment.pages);
  } else if (attachment.type == "text" && attachment.pages.empty() && isValidUTF8(attachment.bytes)) {
    attachment.pages = {attachment.bytes};
  }
  fields.refuseOthers();
  return attachment;
}

const std::vector<Attachment>& sampleAttachments() {
  static const std::vector<Attachment> samples = makeSamples();
  return samples;
}

}  // namespace vorlane::devcloud
