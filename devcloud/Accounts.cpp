#include "devcloud/Accounts.h"

#include "devcloud/Identity.h"
#include "devcloud/Router.h"
#include "devcloud/Services.h"

namespace vorlane::devcloud {
namespace {

Response profile(const Person& person) {
  return Response::json(
      200, {{"success", true},
            {"profile", {{"mcpAccess", person.mcpAccess}, {"email", person.email}, {"name", person.name}}}});
}

Response adminSnapshot(const Person& person, Date now) {
  return Response::json(200,
                        {{"actorId", person.sub},
                         {"role", person.role},
                         {"isOwner", person.isOwner.value_or(person.role == "owner")},
                         {"policyVersion", "devcloud-1"},
                         {"validUntil", webDateText(now + std::chrono::seconds(person.snapshotLifetime))},
                         {"grants", person.grants}});
}

}  // namespace

Accounts::Accounts(const Services& services)
    : identity_(services.get<Identity>()), clock_(services.settings().clock) {}

void Accounts::addRoutes(Router& router) {
  router.add("GET", "/api/user/profile", Scheme::secure,
             [this](const Request& request) { return profile(identity_.authenticate(request)); });
  router.add("GET", "/api/ecosystem/admin-access/me", Scheme::secure, [this](const Request& request) {
    return adminSnapshot(identity_.authenticate(request), clock_());
  });
}

const Person& authenticateAssistant(const Identity& identity, const Request& request) {
  const Person& person = identity.authenticate(request);
  if (person.mcpAccess) return person;
  throw HTTPError(403, {{"success", false},
                        {"code", "MCP_ACCESS_REQUIRED"},
                        {"error", "MCP access is not enabled for this account"}});
}

}  // namespace vorlane::devcloud
