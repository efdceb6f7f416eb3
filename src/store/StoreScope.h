#pragma once

#include <string>

namespace vorlane {

/// Whose rows of which application a change signal speaks of.
class StoreScope {
 public:
  static StoreScope ledgerly(const std::string& ownerID) { return StoreScope("ledgerly", ownerID); }
  static StoreScope sceneward(const std::string& ownerID) { return StoreScope("sceneward", ownerID); }
  static StoreScope recents(const std::string& userID) { return StoreScope("recents", userID); }

  /// "com.vorlane.store.ledgerly.OWNER.changed" and the like; the owner stands in it
  /// as it is, without any escaping.
  const std::string& signalName() const { return signalName_; }
  friend bool operator==(const StoreScope&, const StoreScope&) = default;

 private:
  StoreScope(const std::string& application, const std::string& person)
      : signalName_("com.vorlane.store." + application + "." + person + ".changed") {}

  std::string signalName_;
};

}  // namespace vorlane
