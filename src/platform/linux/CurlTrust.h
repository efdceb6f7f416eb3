#pragma once

#include <optional>
#include <string>

namespace vorlane {

/// Which certificates a transfer trusts: the system's, and those of one more file.
class CurlTrust {
 public:
  /// Throws Failure naming `caFile` when it cannot be read or holds no certificate.
  explicit CurlTrust(const std::optional<std::string>& caFile);

  /// `easy` is libcurl's handle of a transfer; the trust has to outlive it.
  void install(void* easy) const;

 private:
  // A folder of hashed certificates is asked for single ones, where a bundle
  // would be parsed whole for each connection.
  std::string systemFolder_;
  std::string extraFile_;
  // Both bundles in one, on systems without such a folder.
  std::string merged_;
};

}  // namespace vorlane
