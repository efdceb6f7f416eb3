#include "auth/DeviceIdentity.h"

#include "base/Failure.h"
#include "base/Identifiers.h"
#include "base/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace vorlane {
namespace {

const SecretItem sharedItem{"com.vorlane.device", "device-id"};
constexpr char mirrorKey[] = "com.vorlane.device.id";
constexpr std::size_t labelLimit = 64;

struct Typographic {
  std::string_view quote;
  char plain;
};
constexpr Typographic typographic[] = {{"\u2018", '\''}, {"\u2019", '\''}, {"\u201c", '"'}, {"\u201d", '"'}};

/// Only a UUID counts as an id, whichever store it comes from.
std::optional<std::string> validID(std::optional<std::string> text) {
  return text && canonicalUUID(*text) ? std::move(text) : std::nullopt;
}

/// The ASCII character that stands for what `text` begins with; a blank for most.
char plainCharacter(std::string_view text) {
  const auto* const found = std::ranges::find_if(
      typographic, [&](const Typographic& each) { return text.starts_with(each.quote); });
  if (found != std::end(typographic)) return found->plain;
  return text[0] >= ' ' && text[0] <= '~' ? text[0] : ' ';
}

}  // namespace

DeviceIdentity::DeviceIdentity(std::shared_ptr<SecretVault> vault, std::shared_ptr<UserDefaults> defaults,
                               HostName hostName, Log log)
    : vault_(std::move(vault)),
      defaults_(std::move(defaults)),
      hostName_(std::move(hostName)),
      log_(std::move(log)) {}

const std::string& DeviceIdentity::id() const {
  std::call_once(idOnce_, [this] { id_ = workOutID(); });
  return id_;
}

const std::optional<std::string>& DeviceIdentity::label() const {
  std::call_once(labelOnce_, [this] { label_ = cleanedLabel(hostName_().value_or("")); });
  return label_;
}

void DeviceIdentity::apply(URLRequest& request) const {
  request.headers.emplace_back("x-vorlane-device-id", id());
  request.headers.emplace_back("x-vorlane-device-class", "computer");
  if (label()) request.headers.emplace_back("x-vorlane-device-label", *label());
}

/// Two processes may come here at once: the add decides, and both read what it left.
std::string DeviceIdentity::workOutID() const {
  if (auto present = shared()) return mirrored(*std::move(present));
  const auto candidate = validID(defaults_->string(mirrorKey)).value_or(newUppercaseUUID());
  const auto status = vault_->add(sharedItem, candidate);
  if (status != vault::success) {
    log_(fmt::format("DeviceIdentity: shared write status={} (falling back to local mirror)", status));
  }
  return mirrored(shared().value_or(candidate));
}

std::optional<std::string> DeviceIdentity::shared() const {
  auto read = vault_->read(sharedItem);
  if (read.status != vault::success) return std::nullopt;
  return validID(std::move(read.bytes));
}

std::string DeviceIdentity::mirrored(std::string id) const {
  try {
    if (defaults_->string(mirrorKey) != id) defaults_->apply({{mirrorKey, id}});
  } catch (const std::exception& error) {
    log_("DeviceIdentity: the local mirror could not be written: " + describe(error));
  }
  return id;
}

std::optional<std::string> DeviceIdentity::cleanedLabel(std::string_view name) {
  std::string label;
  while (!name.empty() && label.size() < labelLimit) {
    const char plain = plainCharacter(name);
    if (plain != ' ' || (!label.empty() && label.back() != ' ')) label += plain;
    name.remove_prefix(std::max<std::size_t>(utf8SequenceLength(name), 1));
  }
  label = trimmed(label);
  return label.empty() ? std::nullopt : std::optional(std::move(label));
}

}  // namespace vorlane
