#include "store/SnapshotCodec.h"

#include "base/Failure.h"

#include <boost/json/monotonic_resource.hpp>

#include <utility>

namespace vorlane {

std::string SnapshotCodec::encode(const JSONMap& map) {
  return writeJSON(map);
}

JSONMap SnapshotCodec::decode(std::string_view text, boost::json::storage_ptr storage) {
  auto value = parseJSON(text, std::move(storage));
  if (!value.is_object()) throw DomainFailure("SnapshotCodec", 1, "snapshot is not a JSON object");
  return std::move(value.get_object());
}

JSONMap SnapshotCodec::decodeInBlock(std::string_view text) {
  return decode(text, boost::json::make_shared_resource<boost::json::monotonic_resource>(blockSize(text)));
}

}  // namespace vorlane
