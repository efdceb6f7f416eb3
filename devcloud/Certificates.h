#pragma once

#include "base/Date.h"

#include <filesystem>
#include <string>

namespace vorlane::devcloud {

/// What the HTTPS port shows, as PEM text.
struct Certificates {
  /// The authority that clients have to trust.
  std::string authority;
  std::string server;
  std::string serverKey;
};

/// The certificates kept in `directory` (ca.pem, server.pem, server-key.pem,
/// the key with mode 0600), or new ones in their place when one is missing,
/// does not fit the others or ends within a day. The authority's key is thrown
/// away once it has signed: a client that trusts ca.pem trusts this one certificate,
/// for 127.0.0.1 and localhost, and nothing that could be made later. Throws Failure.
Certificates loadOrMakeCertificates(const std::filesystem::path& directory, Date now);

}  // namespace vorlane::devcloud
