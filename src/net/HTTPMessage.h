#pragma once

#include <string>
#include <string_view>

namespace vorlane {

/// One answer, ready to be sent: the head with its closing blank line, and the
/// body kept apart so that a large clip is not copied.
struct HTTPMessage {
  std::string head;
  std::string body;
};

/// An answer without headers of its own. Its reason is "Bad Request" for all but
/// 200, 401 and 404, so a 503 says "503 Bad Request": clients know it like that.
HTTPMessage plainMessage(int status, std::string body, std::string_view contentType);

}  // namespace vorlane
