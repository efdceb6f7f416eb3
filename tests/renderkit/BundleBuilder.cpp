#include "renderkit/BundleBuilder.h"

#include "renderkit/bundle/BakeBundleDecoder.h"
#include "renderkit/bundle/BundleDocuments.h"
#include "renderkit/bundle/JSONDocument.h"

#include <zlib.h>

#include <cstring>

namespace renderkit::testing {
namespace {

void append(std::string& out, std::uint64_t value, int size) {
  for (int i = 0; i < size; ++i, value >>= 8) out += static_cast<char>(value & 255);
}

template <class Element>
MeshBufferRange putElements(std::string& bin, const std::vector<Element>& values) {
  const MeshBufferRange range{.byteOffset = static_cast<std::int64_t>(bin.size()),
                              .count = static_cast<std::int64_t>(values.size())};
  bin.append(reinterpret_cast<const char*>(values.data()), 4 * values.size());
  return range;
}

}  // namespace

std::string deflated(std::string_view bytes) {
  std::string out(bytes.size() + bytes.size() / 100 + 64, '\0');
  z_stream stream{};
  deflateInit2(&stream, 6, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY);
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
  stream.avail_in = static_cast<uInt>(bytes.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  deflate(&stream, Z_FINISH);
  out.resize(out.size() - stream.avail_out);
  deflateEnd(&stream);
  return out;
}

std::string zipBytes(const std::vector<ZipEntry>& entries, std::string_view comment) {
  std::string out, directory;
  for (const auto& entry : entries) {
    const auto payload = entry.deflate ? deflated(entry.bytes) : entry.bytes;
    const auto offset = out.size();
    // Version to flags, method, time and CRC (which nobody reads), sizes: the same in both.
    std::string common;
    append(common, 20, 4);
    append(common, entry.deflate ? 8 : 0, 2);
    append(common, 0, 8);
    append(common, payload.size(), 4);
    append(common, entry.bytes.size(), 4);
    append(common, entry.name.size(), 2);
    append(out, 0x04034B50, 4);
    out += common;
    append(out, entry.localExtra.size(), 2);
    out += entry.name + entry.localExtra + payload;
    append(directory, 0x02014B50, 4);
    append(directory, 20, 2);
    directory += common;
    append(directory, 0, 12);
    append(directory, offset, 4);
    directory += entry.name;
  }
  const auto start = out.size();
  out += directory;
  append(out, 0x06054B50, 4);
  append(out, 0, 4);
  append(out, entries.size(), 2);
  append(out, entries.size(), 2);
  append(out, directory.size(), 4);
  append(out, start, 4);
  append(out, comment.size(), 2);
  return out + std::string(comment);
}

std::string patched(std::string text, std::size_t offset, int size, std::uint64_t value) {
  std::string bytes;
  append(bytes, value, size);
  return text.replace(offset, bytes.size(), bytes);
}

TestBundle::TestBundle() {
  manifest.slates = {.project = "Show", .scene = "1", .setup = "A", .shot = "2"};
  manifest.fps = 24;
  manifest.width = 64;
  manifest.height = 48;
  manifest.frameCount = 4;
  manifest.outputFolderPath = "Show/Sc1";
  manifest.createdAtIso = "2026-01-15T09:30:00Z";
  animation.frameCount = 4;
  photometry.exposure = {.iso = 100, .tStop = 6.86, .shutterAngleDeg = 180, .fps = 24};
}

MeshBufferRange TestBundle::put(const std::vector<float>& values) {
  return putElements(meshesBin, values);
}

MeshBufferRange TestBundle::put(const std::vector<std::uint32_t>& values) {
  return putElements(meshesBin, values);
}

MeshRecord& TestBundle::addMesh(const std::string& id, const std::vector<float>& positions,
                                const std::vector<std::uint32_t>& indices) {
  MeshRecord record{.id = id, .name = id};
  record.localMatrix = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
  record.material.colorHex = "#ffffff";
  record.vertexCount = static_cast<std::int64_t>(positions.size() / 3);
  record.position = put(positions);
  record.index = put(indices);
  return meshTable.records.emplace_back(std::move(record));
}

std::vector<ZipEntry> TestBundle::entries() const {
  std::vector<ZipEntry> entries{
      {.name = "manifest.json", .bytes = printJSON(encode(manifest))},
      {.name = "meshes.json", .bytes = printJSON(encode(meshTable)), .deflate = true},
      {.name = "animation.json", .bytes = printJSON(encode(animation)), .deflate = true},
      {.name = "photometry.json", .bytes = printJSON(encode(photometry))},
      {.name = "meshes.bin", .bytes = meshesBin}};
  for (const auto& [file, bytes] : textureFiles)
    entries.push_back({.name = "textures/" + file, .bytes = bytes});
  return entries;
}

BakeBundle TestBundle::decoded() const {
  return BakeBundleDecoder::decode(Bytes(zip()));
}

}  // namespace renderkit::testing
