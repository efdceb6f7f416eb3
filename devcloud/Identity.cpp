#include "devcloud/Identity.h"

#include "base/Encodings.h"
#include "base/Identifiers.h"
#include "base/JSONArguments.h"
#include "base/SHA256.h"
#include "base/SecureRandom.h"
#include "base/Text.h"
#include "devcloud/Control.h"
#include "devcloud/Fields.h"
#include "devcloud/Router.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace vorlane::devcloud {
namespace {

constexpr std::string_view scopeText = "openid profile email offline_access";
/// Of one person; the oldest goes when one more is issued.
constexpr std::ptrdiff_t mostRefreshTokens = 64;

HTTPError oauthError(int status, std::string_view code, std::string_view description) {
  return HTTPError(status, {{"error", code}, {"error_description", description}});
}

std::int64_t wholeSeconds(Date date) {
  return static_cast<std::int64_t>(std::floor(secondsSince1970(date)));
}

HTTPError unauthorized(std::string_view reason) {
  HTTPError error = apiError(401, reason);
  error.response().headers.emplace_back("WWW-Authenticate", "Bearer");
  return error;
}

std::map<std::string, std::string, std::less<>> oauthForm(const Request& request) {
  const std::string type = asciiLowercased(request.header("Content-Type").value_or(""));
  if (!type.starts_with("application/x-www-form-urlencoded")) {
    throw oauthError(400, "invalid_request", "The body has to be application/x-www-form-urlencoded.");
  }
  const auto fields = parseForm(request.body);
  if (!fields) throw oauthError(400, "invalid_request", "The form does not decode.");
  std::map<std::string, std::string, std::less<>> form;
  for (const auto& [name, value] : *fields) {
    if (!form.emplace(name, value).second) {
      throw oauthError(400, "invalid_request", "The parameter " + name + " is repeated.");
    }
  }
  return form;
}

const std::string& oauthParameter(const std::map<std::string, std::string, std::less<>>& form,
                                  std::string_view name) {
  const auto found = form.find(name);
  if (found == form.end() || found->second.empty()) {
    throw oauthError(400, "invalid_request", fmt::format("Missing required parameter: {}", name));
  }
  return found->second;
}

}  // namespace

JSONMap IssuedTokens::storedForm() const {
  return {{"accessToken", accessToken},
          {"idToken", idToken},
          {"refreshToken", refreshToken},
          {"expiresAt", secondsSince2001(expiresAt)},
          {"tokenType", "Bearer"}};
}

Identity::Identity(const Services& services)
    : people_(services.get<People>()),
      key_(services.settings().directory / "signing-key.pem"),
      settings_(services.settings()),
      changed_(services.recorder(stateName())) {
  people_.onRemoval([this](const std::string& sub) { revoke(sub); });
}

void Identity::addRoutes(Router& router) {
  router.add("POST", "/oauth/token", Scheme::secure,
             [this](const Request& request) { return token(request); });
  router.add("GET", "/.well-known/jwks.json", Scheme::secure, [this](const Request&) { return keys(); });
  router.add("GET", "/.well-known/openid-configuration", Scheme::secure,
             [this](const Request&) { return discovery(); });

  router.add("POST", "/__control/tokens", Scheme::both, [this](const Request& request) {
    const JSONMap body = bodyObject(request);
    Fields fields(body);
    const std::string sub = fields.requiredString("sub");
    const auto lifetime = fields.integer("lifetime", -1'000'000'000, 1'000'000'000);
    fields.refuseOthers();
    if (!people_.find(sub)) throw FieldFailure("sub", "names nobody");
    return Response::json(200, issue(sub, lifetime).storedForm());
  });
  router.add("DELETE", "/__control/tokens/{sub}", Scheme::both, [this](const Request& request) {
    revoke(people_.requested(request).sub);
    return done();
  });
}

IssuedTokens Identity::issue(std::string_view sub, std::optional<std::int64_t> lifetime) {
  const Person* person = people_.find(sub);
  if (!person) throw Failure(fmt::format("there is no person \"{}\"", sub));
  const Date expiresAt = settings_.clock() + std::chrono::seconds(lifetime.value_or(person->tokenLifetime));
  return {accessToken(*person, expiresAt), idToken(*person, expiresAt), newRefreshToken(person->sub),
          expiresAt};
}

void Identity::revoke(std::string_view sub) {
  std::erase_if(grants_, [&](const auto& entry) { return entry.second.sub == sub; });
  changed_(state());
}

const Person& Identity::authenticate(const Request& request) const {
  const std::string header = request.header("Authorization").value_or("");
  if (!asciiLowercased(header).starts_with("bearer ")) throw unauthorized("no bearer token");
  const auto claims = key_.verify(std::string_view(header).substr(7));
  if (!claims) throw unauthorized("the bearer token is not ours");
  if (json::stringOr(*claims, "aud") != settings_.audience) {
    throw unauthorized("the bearer token is not for this API");
  }
  if (secondsSince1970(settings_.clock()) >= json::number(*claims, "exp").value_or(0)) {
    throw unauthorized("the bearer token has expired");
  }
  const Person* person = people_.find(json::stringOr(*claims, "sub"));
  if (!person) throw unauthorized("the bearer token's person is gone");
  return *person;
}

Response Identity::token(const Request& request) {
  const Form form = oauthForm(request);
  const std::string& type = oauthParameter(form, "grant_type");
  if (oauthParameter(form, "client_id") != clientID) {
    throw oauthError(401, "invalid_client", "Unknown client.");
  }
  if (type == "refresh_token") return refresh(form);
  throw oauthError(400, "unsupported_grant_type", "Unsupported grant type: " + type);
}

Response Identity::refresh(const Form& form) {
  const auto found = grants_.find(sha256Hex(oauthParameter(form, "refresh_token")));
  const Person* person = found == grants_.end() ? nullptr : people_.find(found->second.sub);
  if (!person) throw oauthError(403, "invalid_grant", "Unknown or invalid refresh token.");

  const Date expiresAt = settings_.clock() + std::chrono::seconds(person->tokenLifetime);
  JSONMap body{{"access_token", accessToken(*person, expiresAt)},
               {"id_token", idToken(*person, expiresAt)},
               {"expires_in", person->tokenLifetime},
               {"scope", scopeText},
               {"token_type", "Bearer"}};
  if (person->rotatesRefreshTokens) {
    grants_.erase(found);
    body["refresh_token"] = newRefreshToken(person->sub);
  }
  Response response = Response::json(200, body);
  response.headers.emplace_back("Cache-Control", "no-store");
  return response;
}

Response Identity::keys() const {
  return Response::json(200, {{"keys", JSONArray{key_.publicJWK()}}});
}

Response Identity::discovery() const {
  return Response::json(200, {{"issuer", settings_.issuer},
                              {"token_endpoint", settings_.issuer + "oauth/token"},
                              {"jwks_uri", settings_.issuer + ".well-known/jwks.json"},
                              {"id_token_signing_alg_values_supported", JSONArray{"ES256"}}});
}

std::string Identity::accessToken(const Person& person, Date expiresAt) const {
  JSONMap claims{{"iss", settings_.issuer},
                 {"aud", settings_.audience},
                 {"azp", clientID},
                 {"sub", person.sub},
                 {"email", person.email},
                 {"name", person.name},
                 {"scope", scopeText},
                 {"iat", wholeSeconds(settings_.clock())},
                 {"exp", wholeSeconds(expiresAt)},
                 // Two tokens of one second have to differ.
                 {"jti", newLowercaseUUID()}};
  if (person.admin) claims["https://" + settings_.adminClaimHost + "/isAdmin"] = true;
  return key_.sign(claims);
}

std::string Identity::idToken(const Person& person, Date expiresAt) const {
  JSONMap claims{{"iss", settings_.issuer},
                 {"aud", clientID},
                 {"sub", person.sub},
                 {"email", person.email},
                 {"email_verified", true},
                 {"name", person.name},
                 {"iat", wholeSeconds(settings_.clock())},
                 {"exp", wholeSeconds(expiresAt)}};
  if (person.admin) claims["https://" + settings_.adminClaimHost + "/isAdmin"] = true;
  return key_.sign(claims);
}

std::string Identity::newRefreshToken(const std::string& sub) {
  const auto belongs = [&](const auto& entry) { return entry.second.sub == sub; };
  if (std::ranges::count_if(grants_, belongs) >= mostRefreshTokens) {
    auto oldest = grants_.end();
    for (auto grant = grants_.begin(); grant != grants_.end(); ++grant) {
      if (!belongs(*grant)) continue;
      if (oldest == grants_.end() || grant->second.number < oldest->second.number) oldest = grant;
    }
    grants_.erase(oldest);
  }
  std::string token = base64URLEncoded(secureRandomBytes(33));
  grants_.emplace(sha256Hex(token), RefreshGrant{sub, nextNumber_++});
  changed_(state());
  return token;
}

JSONValue Identity::state() const {
  JSONArray state;
  for (const auto& [digest, grant] : grants_) {
    state.push_back({{"digest", digest}, {"sub", grant.sub}, {"number", grant.number}});
  }
  return state;
}

void Identity::restore(const JSONValue& state) {
  grants_.clear();
  for (const auto& value : state.as_array()) {
    const JSONMap& grant = value.as_object();
    const std::int64_t number = json::integer(grant, "number").value_or(0);
    grants_.emplace(json::stringOr(grant, "digest"), RefreshGrant{json::stringOr(grant, "sub"), number});
    nextNumber_ = std::max(nextNumber_, number + 1);
  }
}

}  // namespace vorlane::devcloud
