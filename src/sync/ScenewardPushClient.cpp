#include "sync/ScenewardPushClient.h"

#include "base/JSONArguments.h"

#include <fmt/format.h>

#include <cstddef>
#include <utility>

namespace vorlane {
namespace {

/// A profile and a receipt are a few hundred bytes. An answer is parsed as a whole, which
/// takes some twenty times its size.
constexpr std::size_t longestAnswer = std::size_t{1} << 20;

using Kind = ScenewardPushClient::Failure::Kind;

std::string describeKind(Kind kind) {
  switch (kind) {
    case Kind::signedOut:
      return "Nobody is signed in for the Cloud Save.";
    case Kind::ownerChanged:
      return "The account changed during the Cloud Save, or the save was taken back.";
    case Kind::cloudWriteUnavailable:
      return "The cloud does not let this account save projects.";
  }
  return "The Cloud Save failed.";
}

void requireSuccess(const URLResponse& response) {
  if (!cloud::isSuccess(response)) throw ScenewardPushClient::HTTPFailure(response.status);
}

void requireCurrent(const std::function<bool()>& stillCurrent) {
  if (!stillCurrent()) throw ScenewardPushClient::Failure(Kind::ownerChanged);
}

/// Unknown means no: only a plain "true", said to this very account, lets it write.
bool mayWrite(std::string_view profile, const std::string& owner) {
  const auto value = parseJSON(profile);
  const auto* map = value.if_object();
  if (map == nullptr || json::string(*map, "subject") != owner) return false;
  const auto* capabilities = json::object(*map, "persistenceCapabilities");
  return capabilities != nullptr && json::boolean(*capabilities, "cloudProjectWrite") == true;
}

}  // namespace

ScenewardPushClient::HTTPFailure::HTTPFailure(int status)
    : vorlane::Failure(fmt::format("Cloud Save returned HTTP {}", status)), status_(status) {}

ScenewardPushClient::Failure::Failure(Kind kind) : vorlane::Failure(describeKind(kind)), kind_(kind) {}

URLRequest ScenewardPushClient::requestFor(std::string method, std::string_view path,
                                           const std::string& token) const {
  auto request = api.request(std::move(method), path);
  cloud::setBearer(request, token);
  request.headers.emplace_back(sourceHeader, sourceValue);
  request.maximumBody = longestAnswer;
  identify(request);
  return request;
}

Task<std::string> ScenewardPushClient::publish(Request request, std::function<bool()> stillCurrent) const {
  const auto token = co_await api.bearer();
  if (!token || token->empty()) throw Failure(Kind::signedOut);
  requireCurrent(stillCurrent);

  const auto profile = co_await api.send(requestFor("GET", "/api/v1/user/me", *token));
  requireSuccess(profile);
  if (!mayWrite(profile.body, request.ownerID)) throw Failure(Kind::cloudWriteUnavailable);
  requireCurrent(stillCurrent);

  auto save = requestFor("PUT", fmt::format("/api/v1/projects/{}/checkpoints", request.projectID), *token);
  cloud::setJSONBody(save, std::move(request.payload));
  auto answer = co_await api.send(std::move(save));
  requireSuccess(answer);
  requireCurrent(stillCurrent);
  request.validateReceipt(answer.body);
  co_return std::move(answer.body);
}

}  // namespace vorlane
