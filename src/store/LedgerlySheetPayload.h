#pragma once

#include "base/JSON.h"

namespace vorlane {

/// Turns a sheet's document, as this machine keeps it, into the one that the cloud
/// takes. Pure; the stored text is not changed.
struct LedgerlySheetPayload {
  /// A document whose "categories" is no array of objects comes out with an empty
  /// one; telling such documents apart is the caller's affair.
  static JSONMap cloudForm(JSONMap document);
};

}  // namespace vorlane
