#include "store/SnapshotCodec.h"

#include "base/Failure.h"

namespace vorlane {

std::string SnapshotCodec::encode(const JSONMap& map) {
  return writeJSON(map);
}

JSONMap SnapshotCodec::decode(std::string_view text, boost::json::storage_ptr storage) {
  auto value = parseJSON(text, std::move(storage));
  if (!value.is_object()) throw DomainFailure("SnapshotCodec", 1, "snapshot is not a JSON object");
  return std::move(value.get_object());
}

}  // namespace vorlane
