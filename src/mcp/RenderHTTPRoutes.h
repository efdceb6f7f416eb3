#pragma once

#include "base/tasks/Task.h"
#include "mcp/HTTPRequest.h"

#include <map>
#include <string>

namespace vorlane {

/// What the render routes answer.
struct RenderHTTPResponse {
  int status = 200;
  /// Written sorted by name, letter case kept; Content-Length and Connection are added.
  std::map<std::string, std::string> headers;
  /// Not sent with a 204.
  std::string body;
};

/// Everything at `/render` and below. The HTTP transport hands such requests over
/// without asking for a token: the routes keep an origin rule of their own.
class RenderHTTPRoutes {
 public:
  virtual ~RenderHTTPRoutes() = default;
  /// Runs on the concurrent executor, once for each request, many at a time.
  /// `path` still holds the query; header names are in lower case.
  virtual Task<RenderHTTPResponse> handle(std::string method, std::string path, HTTPHeaders headers,
                                          std::string body) = 0;
};

}  // namespace vorlane
