#pragma once

#include "access/AccessGate.h"
#include "access/AdminAccessRequirement.h"
#include "auth/AccountMark.h"
#include "base/Date.h"
#include "base/tasks/Task.h"
#include "cloud/API.h"

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
    /// The API that has the admin access endpoint.
    cloud::API api;
    Clock now = vorlane::now;
  };

  explicit MCPRequestAuthorizer(Sources sources);

  /// Without a requirement the gate alone decides. With one the back end is
  /// asked each time; nothing is cached. Never throws. The caller keeps the
  /// authorizer alive meanwhile.
  Task<bool> authorize(std::optional<AdminAccessRequirement> requirement, std::string userID) const;

 private:
  Task<bool> isAllowedByBackEnd(AdminAccessRequirement requirement, AccountMark mark) const;

  Sources sources_;
};

}  // namespace vorlane
