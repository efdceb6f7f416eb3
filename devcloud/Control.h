#pragma once

#include "base/JSON.h"
#include "devcloud/Message.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

/// What the control routes have in common. They lie below "/__control/", on both ports,
/// with JSON in and out, and each service adds its own; a person's sub is percent-encoded
/// in a path.
namespace vorlane::devcloud {

class People;
class Router;

/// True for a path below which the cloud is controlled rather than used.
bool isControlPath(std::string_view path);

/// The response that refuses a control request which a web page could have
/// sent: one with an Origin, or for a host that is not this machine.
std::optional<Response> refuseForeignPage(const Request& request);

/// {"success": true}.
Response done();
/// The same when `found`, else throws an apiError of status 404.
Response doneOr404(bool found, std::string_view what);

/// A number of the query from 0 to `most`, `fallback` when it is absent. Throws FieldFailure.
std::int64_t integerQuery(const Request& request, std::string_view name, std::int64_t fallback,
                          std::int64_t most);

/// What belongs to one person: GET NAME/{sub} answers {KEY: [...]}, POST NAME/{sub} takes one
/// object and answers what became of it. 404 when there is no such person.
struct OwnedRoutes {
  std::string_view name;
  std::string_view key;
  std::function<JSONArray(const std::string& sub)> list;
  std::function<JSONMap(const JSONMap& body, const std::string& sub)> put;
};
void addOwnedRoutes(Router& router, const People& people, OwnedRoutes routes);

}  // namespace vorlane::devcloud
