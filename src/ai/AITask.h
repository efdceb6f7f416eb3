#pragma once

#include <cstdint>
#include <string_view>

namespace vorlane {

/// What a provider can do.
enum class AICapability : std::uint8_t { textGenerate, visionAnalyze, embed };

/// What the agent's tools want done.
enum class AITask : std::uint8_t { parse, generate, vision, embed };

/// The capability that a provider of this task must have.
constexpr AICapability requiredCapability(AITask task) {
  switch (task) {
    case AITask::parse:
    case AITask::generate:
      return AICapability::textGenerate;
    case AITask::vision:
      return AICapability::visionAnalyze;
    case AITask::embed:
      return AICapability::embed;
  }
  return AICapability::embed;
}

/// The word under which the task stands in settings, logs and sentences.
constexpr std::string_view rawValue(AITask task) {
  switch (task) {
    case AITask::parse:
      return "parse";
    case AITask::generate:
      return "generate";
    case AITask::vision:
      return "vision";
    case AITask::embed:
      return "embed";
  }
  return "";
}

constexpr std::string_view rawValue(AICapability capability) {
  switch (capability) {
    case AICapability::textGenerate:
      return "textGenerate";
    case AICapability::visionAnalyze:
      return "visionAnalyze";
    case AICapability::embed:
      return "embed";
  }
  return "";
}

}  // namespace vorlane
