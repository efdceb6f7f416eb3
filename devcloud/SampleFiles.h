#pragma once

#include <string>
#include <vector>

namespace vorlane::devcloud {

/// A PDF of A4 pages with these lines of text. Characters that Latin-1 has not become question marks.
std::string pdfWithPages(const std::vector<std::string>& pages);

/// A PNG of four by four pixels, colour bars.
std::string samplePNG();

}  // namespace vorlane::devcloud
