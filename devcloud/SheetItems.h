#pragma once

#include "base/JSON.h"

#include <string>
#include <string_view>
#include <vector>

namespace vorlane::devcloud {

/// An item of a sheet's document, and the category that it is in.
struct SheetItem {
  JSONMap* item = nullptr;
  std::string category;
};

/// The items that go by this id, or by this exact name when no id fits,
/// subcategories included. Valid until the document is changed.
std::vector<SheetItem> findSheetItems(JSONMap& document, std::string_view idOrName);

/// Appends an item to the category of that name, or to its subcategory when one
/// is named; either is made at the end when it is missing.
SheetItem addSheetItem(JSONMap& document, std::string_view category, std::string_view subcategory,
                       std::string_view name);

}  // namespace vorlane::devcloud
