#pragma once

#include "base/JSON.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

/// How the authoring tools find their way in a sheet's document. Arrays that hold
/// anything but objects read as absent, and are not touched.
namespace vorlane::ledgerly {

/// The document's categories, or null.
JSONArray* categories(JSONMap& document);
/// The category's items, or null.
JSONArray* items(JSONMap& category);

/// An array to append to: the array of objects under `key`, made when the key is
/// missing or null. Anything else under it would be lost, or would hide what is
/// appended: it is refused by a failure (409) that names the key.
JSONArray& appendableArray(JSONMap& map, std::string_view key);

/// Whether the string under "id" is `id`.
bool hasID(const JSONMap& map, std::string_view id);

/// The first item of that id in document order, or null.
JSONMap* findItem(JSONMap& document, std::string_view id);

/// By `categoryId` when it is not empty and matches, else by `categoryName`: exactly,
/// but for case, white space at the ends and HTML escapes. The position among the
/// categories, or nothing.
std::optional<std::size_t> findCategory(JSONMap& document, const std::optional<std::string>& categoryID,
                                        const std::optional<std::string>& categoryName);

}  // namespace vorlane::ledgerly
