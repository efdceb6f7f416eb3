#include "store/ScenewardID.h"

#include "base/Identifiers.h"

namespace vorlane {

std::string ScenewardID::canonical(const std::string& id) {
  return canonicalUUID(id).value_or(id);
}

}  // namespace vorlane
