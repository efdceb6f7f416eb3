#pragma once

#include "base/JSON.h"

#include <string_view>

/// How the tools that edit documents find their way in them. Other programs write
/// documents too, so nothing is taken to be where it should be.
namespace vorlane::documents {

/// Whether the string under "id" is `id`.
bool hasID(const JSONMap& map, std::string_view id);

/// The first object of that id in the array of objects under `key`, or null.
JSONMap* findByID(JSONMap& map, std::string_view key, std::string_view id);

/// The array of objects under `key` to append to, made when the key is missing or null.
/// Null for anything else under it, which would be lost, or would hide what is appended.
JSONArray* appendableArray(JSONMap& map, std::string_view key);

}  // namespace vorlane::documents
