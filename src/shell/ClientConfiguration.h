#pragma once

#include <string>

namespace vorlane {

/// The JSON block that a person pastes into the configuration of an assistant
/// that speaks MCP over HTTP. Two-space indentation, no newline at the end.
std::string httpClientConfiguration(const std::string& endpoint, const std::string& token);

/// The same for an assistant that speaks MCP over standard input and output.
std::string stdioClientConfiguration(const std::string& launcher);

}  // namespace vorlane
