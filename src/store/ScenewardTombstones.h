#pragma once

#include "store/Database.h"

#include <string>

namespace vorlane {

/// What stays of saves and projects that a person took back. Tombstones name an owner by
/// a hash alone, so that they may stay when the owner's data is gone. A question to which
/// the database has no answer is answered with yes: in doubt nothing is brought back.
struct ScenewardTombstones {
  /// The lower-case hexadecimal SHA-256 of the owner id's UTF-8 bytes.
  static std::string ownerHash(const std::string& ownerID);
  /// Whether the person removed the project and has not restored it. `projectID` is canonical.
  static bool isProjectCancelled(Database& database, const std::string& ownerID,
                                 const std::string& projectID);
  /// Whether that save was taken back, for ever. `operationID` is a UUID in lower case.
  static bool isOperationCancelled(Database& database, const std::string& ownerID,
                                   const std::string& operationID);
  /// Whether all of the owner's saves were erased, and new ones are refused.
  static bool isOwnerDeleted(Database& database, const std::string& ownerID);
};

}  // namespace vorlane
