#include "devcloud/AttachmentReading.h"

#include "base/Encodings.h"
#include "base/JSONArguments.h"
#include "devcloud/Fields.h"
#include "devcloud/Message.h"
#include "devcloud/SearchWords.h"

#include <fmt/format.h>

namespace vorlane::devcloud {
namespace {

constexpr std::size_t mostPages = 8;
constexpr std::size_t outlineLine = 80;

void addOutline(const Attachment& attachment, JSONMap& answer) {
  JSONArray pages;
  for (std::size_t i = 0; i < attachment.pages.size(); ++i) {
    const auto lines = linesOf(attachment.pages[i]);
    pages.push_back({{"page", i + 1}, {"line", lines.empty() ? "" : shortened(lines[0], outlineLine)}});
  }
  answer["pageCount"] = attachment.pages.size();
  answer["pages"] = std::move(pages);
  if (!attachment.url.empty()) answer["url"] = attachment.url;
}

void addPassages(const Attachment& attachment, const SearchWords& words, JSONMap& answer) {
  JSONArray passages;
  for (std::size_t i = 0; i < attachment.pages.size(); ++i) {
    const std::string line = words.bestLine(attachment.pages[i]);
    if (!line.empty()) passages.push_back({{"page", i + 1}, {"text", line}});
  }
  answer["passages"] = std::move(passages);
}

void addPages(const Attachment& attachment, const JSONArray& wanted, JSONMap& answer) {
  if (wanted.empty() || wanted.size() > mostPages) throw FieldFailure("pages", "must name 1 to 8 pages");
  JSONArray pages;
  for (const auto& value : wanted) {
    const auto page = json::integer(value);
    if (!page || *page < 1) throw FieldFailure("pages", "must hold page numbers");
    if (*page > std::ssize(attachment.pages)) {
      throw apiError(422, fmt::format("page {} is beyond the last, {}", *page, attachment.pages.size()));
    }
    pages.push_back({{"page", *page}, {"text", attachment.pages[static_cast<std::size_t>(*page) - 1]}});
  }
  answer["pages"] = std::move(pages);
}

}  // namespace

JSONMap readAttachment(const Attachment& attachment, const JSONMap& request) {
  Fields fields(request);
  const std::string mode = fields.requiredString("mode");
  JSONMap answer = attachment.hit();
  answer["success"] = true;
  answer["mode"] = mode;
  answer["budgetExhausted"] = false;
  if (mode == "outline") {
    addOutline(attachment, answer);
  } else if (mode == "search") {
    addPassages(attachment, SearchWords(fields.requiredString("query")), answer);
  } else if (mode == "pages") {
    addPages(attachment, fields.requiredArray("pages"), answer);
  } else if (mode == "image") {
    if (attachment.type != "image") throw apiError(422, attachment.name + " is no picture");
    answer["image"] = {{"base64", base64Encoded(attachment.bytes)}, {"mimeType", attachment.mimeType}};
  } else {
    throw FieldFailure("mode", "must be \"outline\", \"search\", \"pages\" or \"image\"");
  }
  return answer;
}

}  // namespace vorlane::devcloud
