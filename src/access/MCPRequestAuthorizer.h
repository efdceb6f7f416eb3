#pragma once

#include "access/AccessGate.h"
#include "access/AdminAccessRequirement.h"
#include "base/Date.h"
#include "base/tasks/Task.h"
#include "cloud/CloudRequest.h"
#include "platform/URLSession.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace vorlane {

/// Decides whether a request may proceed. Fails closed: whatever is unknown
/// means no. Runs on the request's task, many at once.
class MCPRequestAuthorizer {
 public:
  struct Sources {
    std::shared_ptr<const AccessGate> gate;
    CurrentUser currentUserID;
    /// Moves with every change of account.
    std::function<std::uint64_t()> accountGeneration;
    BearerSource bearer;
    NetworkRunner runner;
    Clock now = vorlane::now;
    /// The whole address of the admin access endpoint.
    std::string endpoint;
  };

  explicit MCPRequestAuthorizer(Sources sources);

  /// Without a requirement the gate alone decides. With one the back end is
  /// asked each time; nothing is cached. Never throws. The caller keeps the
  /// authorizer alive meanwhile.
  Task<bool> authorize(std::optional<AdminAccessRequirement> requirement, std::string userID) const;

 private:
  /// The account is still the one that the check began for.
  bool isSameAccount(std::uint64_t generation, const std::string& userID) const;
  Task<bool> isAllowedByBackEnd(AdminAccessRequirement requirement, std::string userID,
                                std::uint64_t generation) const;

  Sources sources_;
};

}  // namespace vorlane
