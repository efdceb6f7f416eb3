#pragma once

#include "base/Date.h"

namespace vorlane::devcloud {

class Identity;
class Router;
struct Person;
struct Request;

/// The profile and the admin snapshot of whoever asks.
void addAccountRoutes(Router& router, const Identity& identity, const Clock& clock);

/// The bearer, on the routes that are made for assistants. Throws an apiError:
/// 401 as Identity::authenticate, 403 with the code "MCP_ACCESS_REQUIRED" when
/// the account has no MCP access.
const Person& authenticateAssistant(const Identity& identity, const Request& request);

}  // namespace vorlane::devcloud
