#include "shell/ClientConfiguration.h"

#include "base/JSON.h"

#include <fmt/format.h>

namespace vorlane {
namespace {

std::string quoted(const std::string& text) {
  std::string out;
  appendJSONString(out, text);
  return out;
}

}  // namespace

std::string httpClientConfiguration(const std::string& endpoint, const std::string& token) {
  return fmt::format(R"({{
  "mcpServers": {{
    "vorlane": {{
      "type": "http",
      "url": {},
      "headers": {{
        "Authorization": {}
      }}
    }}
  }}
}})",
                     quoted(endpoint), quoted("Bearer " + token));
}

std::string stdioClientConfiguration(const std::string& launcher) {
  return fmt::format(R"({{
  "mcpServers": {{
    "vorlane": {{
      "command": {}
    }}
  }}
}})",
                     quoted(launcher));
}

}  // namespace vorlane
