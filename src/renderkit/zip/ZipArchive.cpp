#include "renderkit/zip/ZipArchive.h"

#include "renderkit/Text.h"
#include "renderkit/zip/ZipError.h"

#include <zlib.h>

#include <algorithm>
#include <string_view>
#include <utility>

namespace renderkit {
namespace {

constexpr std::uint32_t endSignature = 0x06054B50, locatorSignature = 0x07064B50;
constexpr std::uint32_t recordSignature = 0x02014B50, localSignature = 0x04034B50;
constexpr std::size_t endSize = 22, largestComment = 65535;
constexpr std::uint32_t inZip64 = 0xFFFFFFFF;

/// One raw DEFLATE stream; ends what it began.
struct Inflater {
  Inflater() { ready = inflateInit2(&stream, -MAX_WBITS) == Z_OK; }
  ~Inflater() {
    if (ready) inflateEnd(&stream);
  }
  Inflater(const Inflater&) = delete;
  Inflater& operator=(const Inflater&) = delete;

  z_stream stream{};
  bool ready = false;
};

/// Inflates into exactly `size` bytes; false when the stream is damaged, or gives fewer or more.
bool inflateExactly(const Bytes& payload, std::vector<std::uint8_t>& out) {
  Inflater inflater;
  if (!inflater.ready) return false;
  auto& stream = inflater.stream;
  stream.next_in = const_cast<Bytef*>(payload.data());
  stream.avail_in = static_cast<uInt>(payload.size());
  stream.next_out = out.data();
  stream.avail_out = static_cast<uInt>(out.size());
  auto status = inflate(&stream, Z_FINISH);
  if (stream.avail_out > 0) return false;
  if (status == Z_STREAM_END) return true;
  // All bytes are there, but not the stream's end: one byte more would be too many.
  std::uint8_t extra = 0;
  stream.next_out = &extra;
  stream.avail_out = 1;
  status = inflate(&stream, Z_FINISH);
  return stream.avail_out == 1 && (status == Z_STREAM_END || status == Z_BUF_ERROR);
}

}  // namespace

ZipArchive ZipArchive::open(Bytes data) {
  ZipArchive archive(std::move(data));
  archive.readDirectory();
  return archive;
}

std::size_t ZipArchive::endOfCentralDirectory() const {
  if (data_.size() < endSize) throw ZipError::notAZipArchive();
  const auto last = data_.size() - endSize;
  const auto first = last > largestComment ? last - largestComment : 0;
  for (auto offset = last + 1; offset-- > first;) {
    if (u32(offset) == endSignature) return offset;
  }
  throw ZipError::notAZipArchive();
}

void ZipArchive::readDirectory() {
  const auto end = endOfCentralDirectory();
  if (end >= 20 && u32(end - 20) == locatorSignature) throw ZipError::zip64Unsupported();
  const auto count = u16(end + 10);
  const auto size = u32(end + 12);
  std::size_t offset = u32(end + 16);
  if (count == 0xFFFF || size == inZip64 || offset == inZip64) throw ZipError::zip64Unsupported();
  for (int i = 0; i < count; ++i) offset = readRecord(offset);
}

std::size_t ZipArchive::readRecord(std::size_t offset) {
  if (u32(offset) != recordSignature) {
    throw ZipError::truncated("central directory record @" + std::to_string(offset));
  }
  // In the order of the fields, so that a cut is named by the first one missing.
  Entry entry;
  entry.method = u16(offset + 10);
  entry.compressedSize = u32(offset + 20);
  entry.uncompressedSize = u32(offset + 24);
  const std::size_t nameLength = u16(offset + 28);
  const std::size_t extraLength = u16(offset + 30);
  const std::size_t commentLength = u16(offset + 32);
  entry.localHeaderOffset = u32(offset + 42);
  if (std::max({entry.compressedSize, entry.uncompressedSize, entry.localHeaderOffset}) == inZip64) {
    throw ZipError::zip64Unsupported();
  }
  if (offset + 46 + nameLength > data_.size()) {
    throw ZipError::truncated("central directory name @" + std::to_string(offset));
  }
  const auto name = data_.text().substr(offset + 46, nameLength);
  if (isUTF8(name)) entries_.insert_or_assign(std::string(name), entry);
  return offset + 46 + nameLength + extraLength + commentLength;
}

Bytes ZipArchive::payload(const std::string& name, const Entry& entry) const {
  const auto header = static_cast<std::size_t>(entry.localHeaderOffset);
  if (u32(header) != localSignature) throw ZipError::truncated("local header for " + name);
  // Its own lengths place the payload; the directory's may differ.
  const auto start = header + 30 + u16(header + 26) + u16(header + 28);
  const auto size = static_cast<std::size_t>(entry.compressedSize);
  if (start + size > data_.size()) throw ZipError::truncated("payload for " + name);
  return data_.slice(start, size);
}

Bytes ZipArchive::read(const std::string& name) const {
  const auto found = entries_.find(name);
  if (found == entries_.end()) throw ZipError::entryNotFound(name);
  const auto& entry = found->second;
  auto bytes = payload(name, entry);
  if (entry.method == 0) return bytes;
  if (entry.method != 8) throw ZipError::unsupportedCompressionMethod(entry.method, name);
  if (entry.uncompressedSize < 1) return {};
  // DEFLATE gives at most 1032 bytes for one, and some for what stands in the last: a
  // greater claim is false, and is not allocated for.
  if (entry.uncompressedSize > (entry.compressedSize + 1) * 1032) throw ZipError::inflateFailed(name);
  std::vector<std::uint8_t> out(static_cast<std::size_t>(entry.uncompressedSize));
  if (!inflateExactly(bytes, out)) throw ZipError::inflateFailed(name);
  return Bytes(std::move(out));
}

std::vector<std::string> ZipArchive::names() const {
  std::vector<std::string> names;
  names.reserve(entries_.size());
  for (const auto& [name, entry] : entries_) names.push_back(name);
  return names;
}

std::uint32_t ZipArchive::u32(std::size_t offset) const {
  if (offset + 4 > data_.size()) throw ZipError::truncated("u32 read @" + std::to_string(offset));
  const auto* at = data_.data() + offset;
  return at[0] | at[1] << 8 | at[2] << 16 | static_cast<std::uint32_t>(at[3]) << 24;
}

std::uint16_t ZipArchive::u16(std::size_t offset) const {
  if (offset + 2 > data_.size()) throw ZipError::truncated("u16 read @" + std::to_string(offset));
  const auto* at = data_.data() + offset;
  return static_cast<std::uint16_t>(at[0] | at[1] << 8);
}

}  // namespace renderkit
