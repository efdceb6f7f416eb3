#pragma once

#include "net/HTTPMessage.h"

#include <map>
#include <string>

namespace vorlane {

/// An answer with headers of its own.
struct HTTPResponse {
  int status = 200;
  /// Written sorted by name, letter case kept; Content-Length and Connection are added.
  std::map<std::string, std::string> headers;
  /// Not sent with a 204.
  std::string body;
};

/// The answer ready to be sent, with the usual reason for its status; "OK" for one that is
/// not among 200, 202, 204, 400, 404 and 500.
HTTPMessage responseMessage(HTTPResponse response);

}  // namespace vorlane
