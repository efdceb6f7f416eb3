#include "renderkit/bundle/BakeBundleDecoder.h"

#include "renderkit/bundle/BakeBundleError.h"
#include "renderkit/bundle/BundleDocuments.h"
#include "renderkit/zip/ZipArchive.h"
#include "renderkit/zip/ZipError.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>

namespace renderkit::BakeBundleDecoder {
namespace {

Bytes entry(const ZipArchive& archive, std::string_view name) {
  const std::string key(name);
  try {
    return archive.read(key);
  } catch (const ZipError& error) {
    if (error.which() == ZipError::Case::entryNotFound) throw BakeBundleError::missingEntry(key);
    throw;
  }
}

struct OpenFile {
  explicit OpenFile(const std::filesystem::path& file)
      : descriptor(::open(file.c_str(), O_RDONLY | O_CLOEXEC)) {}
  ~OpenFile() {
    if (descriptor >= 0) ::close(descriptor);
  }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
  int descriptor;
};

[[noreturn]] void cannotRead(const std::filesystem::path& file, int error) {
  throw Failure(file.string() + " cannot be read: " + std::generic_category().message(error));
}

/// Read rather than mapped, since a file that shrinks under a mapping ends the process.
Bytes wholeFile(const std::filesystem::path& file) {
  const OpenFile open(file);
  struct stat status{};
  if (open.descriptor < 0 || ::fstat(open.descriptor, &status) != 0) cannotRead(file, errno);
  if (S_ISDIR(status.st_mode)) cannotRead(file, EISDIR);
  // One byte more than its size, so that the read that finds the end needs no more room.
  std::vector<std::uint8_t> bytes(static_cast<std::size_t>(status.st_size) + 1);
  std::size_t used = 0;
  for (;;) {
    if (used == bytes.size()) bytes.resize(2 * used);
    const auto got = ::read(open.descriptor, bytes.data() + used, bytes.size() - used);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) cannotRead(file, errno);
    if (got == 0) break;
    used += static_cast<std::size_t>(got);
  }
  bytes.resize(used);
  return Bytes(std::move(bytes));
}

}  // namespace

BakeBundle decode(Bytes bytes) {
  const auto archive = ZipArchive::open(std::move(bytes));
  BakeBundle bundle;
  bundle.manifest = decodeManifest(entry(archive, BakeBundleFiles::manifest).text());
  bundle.meshTable = decodeMeshTable(entry(archive, BakeBundleFiles::meshes).text());
  bundle.animation = decodeAnimation(entry(archive, BakeBundleFiles::animation).text());
  bundle.photometry = decodePhotometry(entry(archive, BakeBundleFiles::photometry).text());
  bundle.meshesBin = entry(archive, BakeBundleFiles::meshesBin);
  for (const auto& [key, file] : bundle.meshTable.textures) {
    bundle.textures.emplace(key, entry(archive, std::string(BakeBundleFiles::textures) + file));
  }
  return bundle;
}

BakeBundle decode(const std::filesystem::path& file) {
  return decode(wholeFile(file));
}

}  // namespace renderkit::BakeBundleDecoder
