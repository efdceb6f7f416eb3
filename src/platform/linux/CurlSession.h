#pragma once

#include "platform/URLSession.h"
#include "platform/linux/CurlDriver.h"
#include "platform/linux/CurlTrust.h"

#include <memory>
#include <optional>
#include <string>

namespace vorlane {

/// The URL session on libcurl.
class CurlSession : public URLSession {
 public:
  /// Throws Failure naming `caFile` when it cannot be used.
  explicit CurlSession(const std::optional<std::string>& caFile);

  Task<URLResponse> send(URLRequest request) override;

 private:
  const CurlTrust trust_;
  const std::string noProxy_;
  // Cancellations may come while the session is being destroyed. After the
  // trust, which its transfers use.
  const std::shared_ptr<CurlDriver> driver_;
};

}  // namespace vorlane
