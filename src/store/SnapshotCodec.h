#pragma once

#include "base/JSON.h"

#include <string>
#include <string_view>

namespace vorlane {

/// Documents as the database keeps them: JSON text with the keys sorted at every
/// depth and no white space.
struct SnapshotCodec {
  /// Throws JSONWriteFailure when the map has no JSON form, a text in it that is not
  /// valid UTF-8 included; whatever is stored can be read again.
  static std::string encode(const JSONMap& map);
  /// The map lies in `storage`. Throws JSONParseFailure when the text is no JSON, and DomainFailure
  /// ("SnapshotCodec", 1) when it is an array.
  static JSONMap decode(std::string_view text, boost::json::storage_ptr storage = {});
};

}  // namespace vorlane
