#pragma once

#include "base/JSON.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace vorlane::devcloud {

/// A file or a link on an item of a list, as one person can reach it.
struct Attachment {
  static constexpr std::size_t largestFile = std::size_t{1} << 20;

  /// Given by the cloud unless it is set; opaque to clients.
  std::string ref;
  /// The "sub" of the person who can reach it.
  std::string owner;
  std::string name;
  /// "pdf", "image", "doc", "text", "link" or "other".
  std::string type = "text";
  /// Whose list it lies in, seen from the person: "own", "shared", "community", "featured" or "share_link".
  std::string kind = "own";
  /// With kind "share_link": what the person has to paste for it to be searched.
  std::string shareLink;
  std::string list;
  std::string category;
  std::string item;
  std::string mimeType;
  /// Of a file.
  std::string bytes;
  /// What can be read out of it, page by page.
  std::vector<std::string> pages;
  /// Of a link.
  std::string url;

  /// As a search lists it.
  JSONMap hit() const;
  /// Everything, the bytes as "base64".
  JSONMap json() const;
};

bool isAttachmentKind(std::string_view kind);
bool isAttachmentType(std::string_view type);

/// The attachment that a control request or the kept state describes, by the
/// names above. Files of type "text" may come as "text", and of type "pdf" as "pages"
/// alone: their bytes are made. Throws FieldFailure.
Attachment attachmentFromJSON(const JSONMap& map, std::string owner);

/// The three files that everybody has from the start: a text, a PDF of two
/// pages and a PNG, on items of a list "Camera Package".
const std::vector<Attachment>& sampleAttachments();

}  // namespace vorlane::devcloud
