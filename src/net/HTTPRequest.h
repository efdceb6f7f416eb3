#pragma once

#include <functional>
#include <map>
#include <string>

namespace vorlane {

/// Header values by name. In a request the names are in lower case.
using HTTPHeaders = std::map<std::string, std::string, std::less<>>;

/// One request as it came over the wire.
struct HTTPRequest {
  /// As sent, letter case kept.
  std::string method;
  /// The request target as sent, query included.
  std::string path;
  HTTPHeaders headers;
  /// Exactly as many bytes as Content-Length told.
  std::string body;
};

}  // namespace vorlane
