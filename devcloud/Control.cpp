#include "devcloud/Control.h"

#include "base/Identifiers.h"
#include "base/Text.h"
#include "devcloud/Fields.h"
#include "devcloud/People.h"
#include "devcloud/Router.h"

#include <fmt/format.h>

namespace vorlane::devcloud {

bool isControlPath(std::string_view path) {
  return path.starts_with("/__control/");
}

std::optional<Response> refuseForeignPage(const Request& request) {
  const std::string host = asciiLowercased(request.header("Host").value_or(""));
  const std::string name = host.substr(0, host.find(':'));
  if ((name == "127.0.0.1" || name == "localhost") && !request.header("Origin")) return std::nullopt;
  return apiError(403, "the cloud is controlled from this machine's own programs alone").response();
}

Response done() {
  return Response::json(200, {{"success", true}});
}

Response doneOr404(bool found, std::string_view what) {
  if (!found) throw apiError(404, what);
  return done();
}

std::int64_t integerQuery(const Request& request, std::string_view name, std::int64_t fallback,
                          std::int64_t most) {
  const auto text = request.queryValue(name);
  if (!text) return fallback;
  const auto number = decimalInteger(*text);
  if (!number || *number < 0 || *number > most) {
    throw FieldFailure(std::string(name), fmt::format("must be a whole number from 0 to {}", most));
  }
  return *number;
}

void addOwnedRoutes(Router& router, const People& people, OwnedRoutes routes) {
  const auto pattern = fmt::format("/__control/{}/{{sub}}", routes.name);
  router.add("GET", pattern, Scheme::both,
             [&people, key = routes.key, list = std::move(routes.list)](const Request& request) {
               return Response::json(200, {{key, list(people.requested(request).sub)}});
             });
  router.add("POST", pattern, Scheme::both, [&people, put = std::move(routes.put)](const Request& request) {
    return Response::json(200, put(bodyObject(request), people.requested(request).sub));
  });
}

}  // namespace vorlane::devcloud
