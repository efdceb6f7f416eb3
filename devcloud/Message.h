#pragma once

#include "base/Date.h"
#include "base/Failure.h"
#include "base/JSON.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vorlane::devcloud {

using Headers = std::vector<std::pair<std::string, std::string>>;

/// One request as it arrived, with its body complete.
struct Request {
  std::string method;
  /// The path as it was sent, still percent-encoded, without the query.
  std::string path;
  std::string query;
  Headers headers;
  std::string body;
  /// True when it came over TLS.
  bool secure = false;
  /// The values of the pattern's "{name}" segments, decoded; set by the router.
  std::map<std::string, std::string, std::less<>> parameters;

  /// The first header of that name, in whatever case.
  std::optional<std::string> header(std::string_view name) const;
  /// The first value of that name in the query, decoded.
  std::optional<std::string> queryValue(std::string_view name) const;
  const std::string& parameter(std::string_view name) const;
};

/// What happens to the connection that a response goes out on.
enum class Cut {
  none,
  /// Closed before the first byte of the response.
  beforeAnswer,
  /// Closed when the head and half of the body are out.
  inBody,
};

struct Response {
  int status = 200;
  Headers headers;
  std::string contentType = "application/json";
  std::string body;
  Cut cut = Cut::none;

  static Response json(int status, const JSONMap& body);
};

/// Ends a request with a status and a JSON object other than the good answer.
class HTTPError : public Failure {
 public:
  HTTPError(int status, JSONMap body);
  const Response& response() const { return response_; }
  Response& response() { return response_; }

 private:
  Response response_;
};

/// The error of the web APIs: {"success": false, "error": text}.
HTTPError apiError(int status, std::string_view text);

/// The body as a JSON object, else an apiError of status 400.
JSONMap bodyObject(const Request& request);

/// Percent-decoded; nothing for a broken escape. In forms a plus sign is a blank.
std::optional<std::string> percentDecoded(std::string_view text, bool plusIsBlank = false);

/// The fields of a query or a form in their order; nothing when one does not decode.
std::optional<std::vector<std::pair<std::string, std::string>>> parseForm(std::string_view text);

/// ISO 8601 in UTC with milliseconds, as web APIs write it.
std::string webDateText(Date date);

}  // namespace vorlane::devcloud
