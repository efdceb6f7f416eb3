#include "renderkit/zip/ZipError.h"

#include <fmt/format.h>

namespace renderkit {

ZipError ZipError::truncated(const std::string& detail) {
  return {Case::truncated, "truncated archive: " + detail};
}

ZipError ZipError::entryNotFound(const std::string& name) {
  return {Case::entryNotFound, "entry not found: " + name};
}

ZipError ZipError::unsupportedCompressionMethod(std::uint16_t method, const std::string& entry) {
  return {Case::unsupportedCompressionMethod,
          fmt::format("unsupported compression method {} {} (STORE + DEFLATE only)", method, entry)};
}

ZipError ZipError::inflateFailed(const std::string& entry) {
  return {Case::inflateFailed, "DEFLATE inflate failed for entry " + entry};
}

ZipError ZipError::notAZipArchive() {
  return {Case::notAZipArchive, "not a ZIP archive (no end-of-central-directory)"};
}

ZipError ZipError::zip64Unsupported() {
  return {Case::zip64Unsupported, "ZIP64 archives are not supported by the bake bundle contract"};
}

}  // namespace renderkit
