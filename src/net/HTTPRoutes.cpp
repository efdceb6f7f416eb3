#include "net/HTTPRoutes.h"

#include "base/Failure.h"
#include "base/JSON.h"
#include "base/Text.h"
#include "net/HTTPResponse.h"

#include <exception>

namespace vorlane {
namespace {

bool isServedBy(std::string_view path, std::string_view prefix) {
  return path.starts_with(prefix) && (path.size() == prefix.size() || path[prefix.size()] == '/');
}

}  // namespace

HTTPMessage notFoundMessage() {
  return plainMessage(404, "not found", "text/plain");
}

void HTTPRoutes::add(std::string prefix, std::shared_ptr<HTTPRoute> route) {
  routes_.emplace_back(std::move(prefix), std::move(route));
}

std::shared_ptr<HTTPRoute> HTTPRoutes::routeTo(std::string_view path) const {
  for (const auto& [prefix, route] : routes_) {
    if (isServedBy(path, prefix)) return route;
  }
  return nullptr;
}

std::optional<HTTPMessage> HTTPRoutes::answerToHead(const HTTPRequest& head) const {
  const auto route = routeTo(head.path);
  if (!route) return notFoundMessage();
  try {
    return route->answerToHead(head);
  } catch (const std::exception&) {
    return std::nullopt;  // which shows again in the answer to the whole
  }
}

Task<HTTPMessage> HTTPRoutes::answer(HTTPRequest request) const {
  const auto route = routeTo(request.path);
  if (!route) co_return notFoundMessage();
  std::exception_ptr failure;
  try {
    co_return co_await route->answer(std::move(request));
  } catch (...) {
    failure = std::current_exception();
  }
  const JSONMap body{{"error", validUTF8(describe(failure))}};
  co_return responseMessage({500, {{"Content-Type", "application/json"}}, writeJSON(body)});
}

}  // namespace vorlane
