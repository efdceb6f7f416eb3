#pragma once

#include "base/Json.h"
#include "base/tasks/Task.h"
#include "platform/URLSession.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace vorlane {

/// The signed-in account's id; nothing while nobody is signed in. Callable from any thread.
using CurrentUser = std::function<std::optional<std::string>()>;
/// A fresh access token; nothing when there is none to be had.
using BearerSource = std::function<Task<std::optional<std::string>>()>;

/// What the requests to the suite's web APIs have in common.
namespace cloud {

/// A request for `path` (which begins with a slash) on the origin `base`. It is given up when
/// nothing has moved for a minute. It follows no redirect: what a person wrote, and who they are,
/// goes to the API that the deployment names or nowhere, and an answer from elsewhere is no receipt.
URLRequest request(std::string method, std::string_view base, std::string_view path);

/// "Authorization" for a token; without one nothing is set.
void setBearer(URLRequest& request, const std::optional<std::string>& token);

/// A body of JSON and its "Content-Type". The whole exchange may then take a minute, and the
/// time that the body needs over a slow line.
void setJSONBody(URLRequest& request, std::string body);
void setJSONBody(URLRequest& request, const JSONMap& body);

bool isSuccess(const URLResponse& response);

/// The body as text, empty when it is not valid UTF-8.
std::string bodyText(const URLResponse& response);

/// `text` between double quotes on one line, control characters, quotes and backslashes escaped,
/// and cut after 1,000 bytes: a cloud's words as they may stand in a log.
std::string quoted(std::string_view text);

}  // namespace cloud
}  // namespace vorlane
