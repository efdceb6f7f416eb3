#pragma once

#include "base/JSON.h"
#include "devcloud/Attachment.h"

namespace vorlane::devcloud {

/// Answers a request to read `attachment`: "mode" is "outline", "search" (with
/// "query"), "pages" (with "pages", eight at most) or "image". Throws FieldFailure,
/// and an apiError of status 422 for a mode or a page that the file has not.
JSONMap readAttachment(const Attachment& attachment, const JSONMap& request);

}  // namespace vorlane::devcloud
