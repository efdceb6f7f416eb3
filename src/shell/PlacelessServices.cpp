#include "shell/PlacelessServices.h"

#include "base/Failure.h"

namespace vorlane {
namespace {

class LocalSignals : public SignalCenter {
 public:
  bool post(std::string_view name) override {
    center_.post(name);
    return true;  // there is nobody else to reach
  }
  Observation observe(std::string name, std::function<void()> handler) override {
    return center_.observe(std::move(name), std::move(handler));
  }

 private:
  NotificationCenter center_;
};

class NoDefaults : public UserDefaults {
 public:
  std::optional<DefaultsValue> value(std::string_view) const override { return std::nullopt; }
  void apply(std::vector<Change>) override {
    throw Failure("there is no folder for user defaults: HOME is not set");
  }
};

class NoVault : public SecretVault {
 public:
  Read read(const SecretItem&) override { return {vault::notAvailable, {}}; }
  vault::Status update(const SecretItem&, const std::string&) override { return vault::notAvailable; }
  vault::Status add(const SecretItem&, const std::string&) override { return vault::notAvailable; }
  vault::Status remove(const SecretItem&) override { return vault::notAvailable; }
  std::optional<std::string> stamp(const SecretItem&) override { return "none"; }
};

}  // namespace

std::unique_ptr<SignalCenter> makeLocalSignals() {
  return std::make_unique<LocalSignals>();
}

std::unique_ptr<UserDefaults> makePlacelessDefaults() {
  return std::make_unique<NoDefaults>();
}

std::unique_ptr<SecretVault> makePlacelessVault() {
  return std::make_unique<NoVault>();
}

}  // namespace vorlane
