// Whatever stands in an archive, every entry is read in its claimed size or refused as a ZipError.
#include "renderkit/zip/ZipArchive.h"
#include "renderkit/zip/ZipError.h"

#include <cstdint>
#include <cstdlib>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    const auto archive = renderkit::ZipArchive::open(renderkit::Bytes(std::vector(data, data + size)));
    for (const auto& [name, entry] : archive.entries()) {
      try {
        const auto bytes = archive.read(name);
        const auto claimed = entry.method == 0 ? entry.compressedSize : entry.uncompressedSize;
        if (bytes.size() != static_cast<std::size_t>(claimed)) std::abort();
      } catch (const renderkit::ZipError& error) {
        if (!error.text().starts_with("[zip] ")) std::abort();
      }
    }
  } catch (const renderkit::ZipError& error) {
    if (error.which() == renderkit::ZipError::Case::entryNotFound) std::abort();
  }
  return 0;
}
