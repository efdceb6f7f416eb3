#include "shell/AgentCommandLine.h"

#include <charconv>

namespace vorlane {
namespace {

std::uint16_t portNumber(const std::string& text) {
  std::uint16_t port = 0;
  const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), port);
  if (status != std::errc() || end != text.data() + text.size()) {
    throw UsageFailure("the option --port takes a number from 0 to 65535, not \"" + text + "\"");
  }
  return port;
}

}  // namespace

AgentCommandLine AgentCommandLine::parse(const Options::Words& words) {
  AgentCommandLine line;
  Options options;
  options.flag("--headless", line.headless)
      .flag("--background", line.background)
      .flag("--relaunch", line.relaunch)
      .flag("--version", line.version)
      .value("--port", [&line](const std::string& text) { line.port = portNumber(text); });
  line.paths.addTo(options);
  line.urls = options.parse(words);
  if (line.headless && line.background) throw UsageFailure("--headless and --background exclude each other");
  return line;
}

}  // namespace vorlane
