#pragma once

#include "base/Date.h"
#include "base/JSON.h"
#include "devcloud/Journal.h"
#include "devcloud/Service.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace vorlane::devcloud {

/// What the services of one cloud share.
struct CloudSettings {
  /// For files that outlive a run.
  std::filesystem::path directory;
  Clock clock;
  /// The identity provider's name in tokens, "https://HOST:PORT/".
  std::string issuer;
  /// The API that access tokens are for.
  std::string audience;
  /// The administrator claim is "https://" + this + "/isAdmin".
  std::string adminClaimHost;
};

/// Every service of one cloud, in the order in which they are made.
class Services {
 public:
  using Recorder = std::function<void(std::string_view stateName, JSONValue change)>;

  /// `record` gets each change of a service's state, once all services are made.
  Services(CloudSettings settings, Recorder record);

  const CloudSettings& settings() const { return settings_; }

  /// A service, for a constructor one that is made earlier.
  template <class S>
  S& get() const {
    for (const auto& service : all_) {
      if (auto* const found = dynamic_cast<S*>(service.get())) return *found;
    }
    throw std::logic_error("the cloud has no such service yet");
  }

  /// Records the changes of a state of that name.
  ChangeRecorder recorder(std::string_view stateName) const;

  void addRoutes(Router& router) const;
  /// The parts of all services by their names.
  JSONMap state() const;
  void restore(const JSONMap& state) const;

 private:
  const CloudSettings settings_;
  const Recorder record_;
  std::vector<std::unique_ptr<Service>> all_;
};

}  // namespace vorlane::devcloud
