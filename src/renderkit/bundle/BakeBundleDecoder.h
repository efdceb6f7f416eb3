#pragma once

#include "renderkit/Bytes.h"
#include "renderkit/bundle/BakeBundle.h"

#include <filesystem>

namespace renderkit::BakeBundleDecoder {

/// Decodes a bundle and stops at the first failure: nothing is repaired and nothing has a
/// default. Throws ZipError, BakeBundleError, BundleDocumentError.
BakeBundle decode(Bytes archive);

/// The same for a file, which is read whole before anything of it is looked at. Throws a Failure
/// too when it cannot be read.
BakeBundle decode(const std::filesystem::path& file);

}  // namespace renderkit::BakeBundleDecoder
