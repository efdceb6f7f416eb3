#include "ai/AIError.h"

#include <utility>

namespace vorlane {

AIError AIError::unsupportedTask(AITask task) {
  return {Kind::unsupportedTask, "This provider cannot run " + std::string(rawValue(task)) + " tasks.", task};
}

AIError AIError::providerUnavailable(std::string text) {
  return {Kind::providerUnavailable, std::move(text)};
}

AIError AIError::transport(std::string text) {
  return {Kind::transport, std::move(text)};
}

AIError AIError::decoding(std::string text) {
  return {Kind::decoding, std::move(text)};
}

AIError AIError::notYetImplemented(std::string text) {
  return {Kind::notYetImplemented, std::move(text)};
}

}  // namespace vorlane
