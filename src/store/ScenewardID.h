#pragma once

#include <string>

namespace vorlane {

/// The one spelling under which a project is stored, so that a UUID in upper and in
/// lower case reaches one row.
struct ScenewardID {
  /// The lower-case form of a UUID; any other text as it is.
  static std::string canonical(const std::string& id);
};

}  // namespace vorlane
