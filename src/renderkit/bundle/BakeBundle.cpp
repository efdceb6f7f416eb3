#include "renderkit/bundle/BakeBundle.h"

#include "renderkit/bundle/BakeBundleError.h"

#include <bit>
#include <cstring>

namespace renderkit {
namespace {

static_assert(std::endian::native == std::endian::little, "meshes.bin is read as it lies");

template <class Element>
std::vector<Element> elements(const BakeBundle& bundle, const MeshBufferRange& range) {
  static_assert(sizeof(Element) == 4);
  bundle.checkRange(range);
  std::vector<Element> values;
  const auto count = static_cast<std::size_t>(range.count);
  // One more, so that a reader may fetch the last vertex as four floats.
  values.reserve(count + 1);
  values.resize(count);
  if (count > 0) {
    std::memcpy(values.data(), bundle.meshesBin.data() + range.byteOffset, count * sizeof(Element));
  }
  return values;
}

}  // namespace

void BakeBundle::checkRange(const MeshBufferRange& range) const {
  if (range.byteOffset % 4 != 0) throw BakeBundleError::misalignedRange(range.byteOffset);
  const auto size = meshesBin.size();
  // Compared so that no sum or product can overflow.
  if (range.byteOffset < 0 || range.count < 0 || static_cast<std::uint64_t>(range.byteOffset) > size ||
      static_cast<std::uint64_t>(range.count) > (size - static_cast<std::uint64_t>(range.byteOffset)) / 4) {
    throw BakeBundleError::rangeOutOfBounds(range.byteOffset, range.count, size);
  }
}

std::vector<float> BakeBundle::floats(const MeshBufferRange& range) const {
  return elements<float>(*this, range);
}

std::vector<std::uint32_t> BakeBundle::integers(const MeshBufferRange& range) const {
  return elements<std::uint32_t>(*this, range);
}

std::vector<float> BakeBundle::positions(const MeshRecord& record) const {
  return floats(record.position);
}

std::vector<float> BakeBundle::normals(const MeshRecord& record) const {
  return record.normal ? floats(*record.normal) : std::vector<float>{};
}

std::vector<float> BakeBundle::uvs(const MeshRecord& record) const {
  return record.uv ? floats(*record.uv) : std::vector<float>{};
}

std::vector<std::uint32_t> BakeBundle::indices(const MeshRecord& record) const {
  return record.index ? integers(*record.index) : std::vector<std::uint32_t>{};
}

}  // namespace renderkit
