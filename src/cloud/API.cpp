#include "cloud/API.h"

#include <fmt/format.h>

#include <utility>

namespace vorlane::cloud {
namespace {

constexpr std::chrono::seconds timeout{60};

}  // namespace

API API::at(const std::optional<std::string>& base, std::string_view key, NetworkRunner network,
            BearerSource bearer, std::shared_ptr<const Account> account) {
  API api{base.value_or(""), std::move(network), std::move(bearer), std::move(account)};
  if (!api.isNamed()) {
    api.send = [key = std::string(key)](URLRequest) -> Task<URLResponse> {
      throw TransportFailure(0, fmt::format("the deployment names no \"{}\"", key));
      co_return URLResponse();
    };
  }
  return api;
}

URLRequest API::request(std::string method, std::string_view path) const {
  std::string_view origin = base;
  while (origin.ends_with('/')) origin.remove_suffix(1);
  URLRequest request;
  request.method = std::move(method);
  request.url = std::string(origin) + std::string(path);
  request.timeout = timeout;
  request.idleTimeout = timeout;
  request.followRedirects = false;
  return request;
}

}  // namespace vorlane::cloud
