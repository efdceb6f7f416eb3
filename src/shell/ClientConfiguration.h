#pragma once

#include <string>

namespace vorlane {

/// The JSON block that a person pastes into the configuration of an assistant
/// that speaks MCP over HTTP. Two-space indentation, no newline at the end.
std::string httpClientConfiguration(const std::string& endpoint, const std::string& token);

}  // namespace vorlane
