#pragma once

#include "base/Date.h"
#include "devcloud/Service.h"

namespace vorlane::devcloud {

class Identity;
class Services;
struct Person;
struct Request;

/// The profile and the admin snapshot of the bearer.
class Accounts : public Service {
 public:
  explicit Accounts(const Services& services);

  void addRoutes(Router& router) override;

 private:
  const Identity& identity_;
  const Clock clock_;
};

/// The bearer, on the routes that are made for assistants. Throws an apiError:
/// 401 as Identity::authenticate, 403 with the code "MCP_ACCESS_REQUIRED" when
/// the account has no MCP access.
const Person& authenticateAssistant(const Identity& identity, const Request& request);

}  // namespace vorlane::devcloud
