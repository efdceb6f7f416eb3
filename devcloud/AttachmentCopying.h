#pragma once

#include "base/Date.h"
#include "base/JSON.h"
#include "devcloud/Attachment.h"
#include "devcloud/Sheets.h"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace vorlane::devcloud {

/// A sheet with attachments copied onto its items, not kept yet.
struct AttachedSheet {
  Sheet sheet;
  /// The copies, each with the ref that its item names.
  std::vector<Attachment> copies;
};

using AttachmentLookup = std::function<const Attachment*(std::string_view ref)>;
using RefMaker = std::function<std::string()>;

/// Copies what "sources" names onto items of `sheet`, all or nothing. Throws
/// FieldFailure for sources of a wrong form, and an HTTPError of status 422 with
/// "error", "failures" and "entries" when one names an item or an attachment
/// that is not there.
AttachedSheet copyAttachments(Sheet sheet, const JSONArray& sources, const AttachmentLookup& lookup,
                              const RefMaker& newRef, Date now);

}  // namespace vorlane::devcloud
