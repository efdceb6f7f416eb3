#pragma once

#include "base/Failure.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vorlane {

/// What differs from one installation to another.
struct Deployment {
  std::string identityDomain = "REPLACE_WITH_IDENTITY_DOMAIN";
  std::string identityAudience = "REPLACE_WITH_IDENTITY_AUDIENCE";
  std::optional<std::string> ledgerlyBase;
  std::optional<std::string> scenewardBase;
  std::string profilePath = "/api/user/profile";
  std::optional<std::string> renderWebBase;
  std::vector<std::string> renderOrigins;
  std::optional<std::string> updatesHost;
  std::vector<std::string> adminEmails;
  std::optional<std::string> adminClaimHost;
  std::optional<std::string> caFile;
  bool assumeOnline = false;

  /// Reads the values out of a deployment file's text. Throws Failure naming the
  /// key that is unknown or of a wrong type.
  static Deployment parse(std::string_view text);

  /// Reads the file. A file that is missing is no error unless it was `named` by
  /// the person; whatever else is wrong throws Failure naming the file.
  static Deployment load(const std::string& path, bool named);
};

}  // namespace vorlane
