#pragma once

#include "base/Date.h"
#include "base/JSON.h"

#include <boost/json/storage_ptr.hpp>

#include <cstddef>

namespace vorlane {

/// The list of one import, in the form in which a sheet's document holds it.
struct LedgerlyImportPayload {
  JSONArray categories;
  std::size_t itemCount = 0;

  /// Takes "categories" out of the arguments. Only the keys that an import knows come
  /// through; links are stamped `present`. Anything but an array of objects is no category.
  /// `storage` holds the categories; texts move into the default one, and are copied
  /// into another.
  static LedgerlyImportPayload take(JSONMap& arguments, Date present, boost::json::storage_ptr storage = {});

  /// The smaller form that the archive keeps of the categories: names, quantities,
  /// prices and notes, of the items that have a name.
  JSONArray archiveForm() const;
};

}  // namespace vorlane
