#pragma once

#include "ai/AITask.h"

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace vorlane {

/// One request to a model.
struct AICall {
  AITask task = AITask::generate;
  std::string prompt;
  /// The picture's own bytes, for a vision task.
  std::optional<std::string> imageBytes;
  std::optional<std::string> imageMimeType;
  /// How long the answer may be, in the model's tokens.
  std::int64_t maxTokens = 0;

  static AICall text(std::string prompt, AITask task, std::int64_t maxTokens) {
    return {task, std::move(prompt), std::nullopt, std::nullopt, maxTokens};
  }
  static AICall vision(std::string prompt, std::string imageBytes, std::string mimeType,
                       std::int64_t maxTokens) {
    return {AITask::vision, std::move(prompt), std::move(imageBytes), std::move(mimeType), maxTokens};
  }
  static AICall embed(std::string input) {
    return {AITask::embed, std::move(input), std::nullopt, std::nullopt, 0};
  }
};

/// What a model answered.
struct AIResult {
  std::string text;
  std::string modelUsed;
  std::string providerID;
  std::optional<std::int64_t> tokensIn;
  std::optional<std::int64_t> tokensOut;
};

}  // namespace vorlane
