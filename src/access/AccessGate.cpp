#include "access/AccessGate.h"

#include <utility>

namespace vorlane {
namespace {

constexpr auto accessKey = "com.vorlane.mcp_access";
constexpr auto ownerKey = "com.vorlane.mcp_access.owner";

}  // namespace

AccessGate::AccessGate(std::shared_ptr<UserDefaults> defaults) : defaults_(std::move(defaults)) {}

bool AccessGate::isOn() const {
  return !closed_ && defaults_->boolean(accessKey).value_or(false);
}

bool AccessGate::isEnabled(const std::optional<std::string>& userID) const {
  return userID && !userID->empty() && isOn() && defaults_->string(ownerKey) == userID;
}

void AccessGate::set(bool enabled, const std::optional<std::string>& owner) {
  if (!enabled) closed_ = true;
  std::optional<DefaultsValue> kept;
  if (enabled && owner) kept = *owner;
  defaults_->apply({{accessKey, DefaultsValue(enabled)}, {ownerKey, std::move(kept)}});
  closed_ = false;
}

}  // namespace vorlane
