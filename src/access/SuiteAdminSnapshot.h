#pragma once

#include "access/AdminAccessRequirement.h"
#include "base/Date.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vorlane {

/// What the back end says that a person may do as an administrator, for a short
/// while. Whatever is unclear in it grants nothing.
struct SuiteAdminSnapshot {
  struct Grant {
    std::string product;
    std::string section;
    std::vector<std::string> actions;
    std::optional<std::map<std::string, std::string>> scope;
    /// ISO 8601, as are the dates below.
    std::optional<std::string> startsAt;
    std::optional<std::string> expiresAt;

    bool matches(const AdminAccessRequirement& requirement, Date now) const;
  };

  /// Whom it is for.
  std::string actorId;
  /// "owner" and "manager" mean something; any other value grants nothing.
  std::string role;
  bool isOwner = false;
  std::string policyVersion;
  std::string validUntil;
  std::vector<Grant> grants;

  /// Reads the endpoint's JSON. A missing key or a value of another type throws
  /// Failure naming the key; null reads as absent where absence is allowed.
  static SuiteAdminSnapshot decode(std::string_view body);

  bool allows(const AdminAccessRequirement& requirement, Date now) const;
};

}  // namespace vorlane
