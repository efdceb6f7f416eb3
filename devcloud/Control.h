#pragma once

#include "devcloud/Message.h"

namespace vorlane::devcloud {

class Faults;
class Identity;
class People;
class RequestLog;
class Router;
class Sheets;

/// What the control routes work on. Everything outlives the router.
struct Controlled {
  People& people;
  Identity& identity;
  Sheets& sheets;
  RequestLog& requests;
  Faults& faults;
};

/// True for a path below which the cloud is steered rather than used.
bool isControlPath(std::string_view path);

/// The response that refuses a control request which a web page could have
/// sent: one with an Origin, or for a host that is not this machine.
std::optional<Response> refuseForeignPage(const Request& request);

/// Adds the routes below "/__control/", on both ports, JSON in and out:
///
///   GET    people                      {"people": [...]}
///   POST   people                      adds or updates the person of "sub"
///   DELETE people/{sub}                with sheets and refresh tokens
///   POST   tokens                      {"sub", "lifetime"?} -> the record for an agent's vault
///   DELETE tokens/{sub}                ends every refresh token of the person
///   GET    sheets/{sub}                {"sheets": [...]}, documents included
///   POST   sheets/{sub}                adds a sheet, or replaces the one of "id"
///   DELETE sheets/{sub}/{id}
///   GET    requests ?method ?path      {"requests": [...]}; with ?atLeast=N it waits
///                                      until so many have arrived, ?timeoutMs (5000) at the longest
///   DELETE requests
///   GET    faults, POST faults, DELETE faults, DELETE faults/{id}
///   POST   faults/release              lets go what a fault holds
///   GET    sleep ?ms                   answers after so many milliseconds
///
/// A person's sub is percent-encoded in a path.
void addControlRoutes(Router& router, Controlled controlled);

}  // namespace vorlane::devcloud
