// Each document of a bundle is refused with a failure, or survives a way out and back. The
// first byte tells which document it is.
#include "renderkit/Failure.h"
#include "renderkit/bundle/BundleDocuments.h"
#include "renderkit/bundle/JSONDocument.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace {

template <class Decode>
void bothWays(std::string_view text, const Decode& decode) {
  const auto document = decode(text);
  if (!(decode(renderkit::printJSON(renderkit::encode(document))) == document)) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);
  try {
    switch (data[0] % 4) {
      case 0:
        bothWays(text, renderkit::decodeManifest);
        break;
      case 1:
        bothWays(text, renderkit::decodeMeshTable);
        break;
      case 2:
        bothWays(text, renderkit::decodeAnimation);
        break;
      default:
        bothWays(text, renderkit::decodePhotometry);
    }
  } catch (const renderkit::Failure& failure) {
    if (!failure.text().starts_with("[bakeBundle] ")) std::abort();
  }
  return 0;
}
