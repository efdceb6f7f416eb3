#include "access/KeychainBearerStorage.h"

#include "base/Failure.h"
#include "base/Text.h"

#include <fmt/format.h>

#include <utility>

namespace vorlane {
namespace {

[[noreturn]] void fail(std::string_view operation, vault::Status status) {
  throw DomainFailure("KeychainBearerStorage", status, fmt::format("{} failed: {}", operation, status));
}

}  // namespace

KeychainBearerStorage::KeychainBearerStorage(std::shared_ptr<SecretVault> secrets, SecretItem item)
    : vault_(std::move(secrets)), item_(std::move(item)) {}

std::optional<std::string> KeychainBearerStorage::read() {
  auto found = vault_->read(item_);
  if (found.status == vault::itemNotFound) return std::nullopt;
  if (found.status != vault::success) fail("read", found.status);
  if (!isValidUTF8(found.bytes)) return std::nullopt;
  return std::move(found.bytes);
}

void KeychainBearerStorage::write(const std::string& secret) {
  auto status = vault::duplicateItem;
  // Another process may add its own between our two steps; it then gives way.
  for (int attempt = 0; attempt < 3 && status == vault::duplicateItem; ++attempt) {
    vault_->remove(item_);
    status = vault_->add(item_, secret);
  }
  if (status != vault::success) fail("write", status);
}

bool KeychainBearerStorage::create(const std::string& secret) {
  const auto status = vault_->add(item_, secret);
  if (status == vault::duplicateItem) return false;
  if (status != vault::success) fail("write", status);
  return true;
}

void KeychainBearerStorage::remove() {
  const auto status = vault_->remove(item_);
  if (status != vault::success && status != vault::itemNotFound) fail("delete", status);
}

std::optional<std::string> KeychainBearerStorage::stamp() {
  return vault_->stamp(item_);
}

}  // namespace vorlane
