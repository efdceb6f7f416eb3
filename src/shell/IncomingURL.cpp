#include "shell/IncomingURL.h"

#include <boost/url/parse.hpp>
#include <boost/url/url_view.hpp>

namespace vorlane {
std::string ignoredURLLine(std::string_view text) {
  std::string scheme = "?", host;
  if (const auto url = boost::urls::parse_uri_reference(text)) {
    if (url->has_scheme()) scheme = url->scheme();
    host = url->host();
  }
  return "[AppDelegate] ignored URL " + scheme + "://" + host;
}

}  // namespace vorlane
