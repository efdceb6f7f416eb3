#include "tools/ledgerly/LedgerlyDocument.h"

#include "base/JSONArguments.h"
#include "base/Text.h"
#include "tools/DocumentEdits.h"
#include "tools/ledgerly/LedgerlyText.h"
#include "tools/ledgerly/LedgerlyTool.h"

namespace vorlane::ledgerly {
namespace {

std::string comparableName(std::string_view name) {
  return lowercased(trimmed(entityDecoded(name)));
}

}  // namespace

JSONArray* categories(JSONMap& document) {
  return json::arrayOfObjects(document, "categories");
}

JSONArray* items(JSONMap& category) {
  return json::arrayOfObjects(category, "items");
}

JSONArray& appendableArray(JSONMap& map, std::string_view key) {
  if (auto* values = documents::appendableArray(map, key)) return *values;
  throw ledgerlyFailure(409, "the sheet holds something under \"" + std::string(key) +
                                 "\" that is not a list of objects; nothing was added");
}

bool hasID(const JSONMap& map, std::string_view id) {
  return documents::hasID(map, id);
}

JSONMap* findItem(JSONMap& document, std::string_view id) {
  auto* all = categories(document);
  if (all == nullptr) return nullptr;
  for (auto& category : *all) {
    if (auto* item = documents::findByID(category.get_object(), "items", id)) return item;
  }
  return nullptr;
}

std::optional<std::size_t> findCategory(JSONMap& document, const std::optional<std::string>& categoryID,
                                        const std::optional<std::string>& categoryName) {
  const auto* all = categories(document);
  if (all == nullptr) return std::nullopt;
  if (categoryID && !categoryID->empty()) {
    for (std::size_t i = 0; i < all->size(); ++i) {
      if (hasID((*all)[i].get_object(), *categoryID)) return i;
    }
  }
  if (!categoryName) return std::nullopt;
  const auto wanted = comparableName(*categoryName);
  for (std::size_t i = 0; i < all->size(); ++i) {
    const auto name = json::string((*all)[i].get_object(), "name");
    if (name && comparableName(*name) == wanted) return i;
  }
  return std::nullopt;
}

}  // namespace vorlane::ledgerly
