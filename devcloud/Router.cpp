#include "devcloud/Router.h"

#include "devcloud/Fields.h"

#include <fmt/format.h>

namespace vorlane::devcloud {
namespace {

using Parameters = std::map<std::string, std::string, std::less<>>;

std::vector<std::string> segmentsOf(std::string_view path) {
  std::vector<std::string> segments;
  if (path.starts_with('/')) path.remove_prefix(1);
  for (;;) {
    const std::size_t slash = path.find('/');
    segments.emplace_back(path.substr(0, slash));
    if (slash == std::string_view::npos) return segments;
    path.remove_prefix(slash + 1);
  }
}

/// The parameters when the path matches. Segments are decoded one by one, so
/// that an encoded slash stays inside its segment.
std::optional<Parameters> match(const std::vector<std::string>& pattern,
                                const std::vector<std::string>& path) {
  if (pattern.size() != path.size()) return std::nullopt;
  Parameters parameters;
  for (std::size_t i = 0; i < path.size(); ++i) {
    if (!pattern[i].starts_with('{')) {
      if (pattern[i] != path[i]) return std::nullopt;
      continue;
    }
    auto value = percentDecoded(path[i]);
    if (!value || value->empty()) return std::nullopt;
    parameters.emplace(pattern[i].substr(1, pattern[i].size() - 2), std::move(*value));
  }
  return parameters;
}

}  // namespace

void Router::add(std::string method, std::string_view pattern, Scheme scheme, Handler handler) {
  routes_.push_back({std::move(method), segmentsOf(pattern), scheme, std::move(handler)});
}

void Router::add(std::string method, std::string_view pattern, Scheme scheme, PlainHandler handler) {
  add(std::move(method), pattern, scheme,
      Handler(
          [handler = std::move(handler)](Request request) -> Task<Response> { co_return handler(request); }));
}

const Router::Route& Router::find(Request& request) const {
  const auto path = segmentsOf(request.path);
  std::string allowed;
  for (const Route& route : routes_) {
    auto parameters = match(route.segments, path);
    if (!parameters) continue;
    // The connection leaves the body out of an answer to HEAD.
    if (route.method != (request.method == "HEAD" ? "GET" : request.method)) {
      allowed += (allowed.empty() ? "" : ", ") + route.method;
      continue;
    }
    if (route.scheme == Scheme::secure && !request.secure) {
      throw apiError(403, "this route is served over HTTPS alone");
    }
    request.parameters = std::move(*parameters);
    return route;
  }
  if (allowed.empty()) throw apiError(404, "no route " + request.path);
  HTTPError wrongMethod = apiError(405, fmt::format("{} takes {}", request.path, allowed));
  wrongMethod.response().headers.emplace_back("Allow", allowed);
  throw wrongMethod;
}

Task<Response> Router::route(Request request) const {
  try {
    const Route& found = find(request);
    co_return co_await found.handler(std::move(request));
  } catch (const HTTPError& error) {
    co_return error.response();
  } catch (const FieldFailure& failure) {
    co_return Response::json(
        400, {{"success", false}, {"error", failure.description()}, {"field", failure.field()}});
  } catch (const std::exception& error) {
    if (isCancellation(error)) throw;
    co_return Response::json(500, {{"success", false}, {"error", describe(error)}});
  }
}

}  // namespace vorlane::devcloud
