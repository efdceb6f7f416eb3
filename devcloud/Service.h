#pragma once

#include "base/JSON.h"

#include <string_view>

namespace vorlane::devcloud {

class Router;

/// One service of the cloud: a web API, or what controls the cloud itself. Its constructor
/// may take the Services, where it finds the settings and the services made before it; the
/// list of all of them is in Services.cpp. It lives as long as the server, and on the
/// server's thread alone.
class Service {
 public:
  Service() = default;
  virtual ~Service() = default;
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  /// Adds its routes, and those below "/__control/" that control it. Both may refer to the service.
  virtual void addRoutes(Router& router) = 0;

  /// The name of its part of the cloud's state; empty when it keeps none.
  virtual std::string_view stateName() const { return {}; }
  virtual JSONValue state() const { return nullptr; }
  /// Takes over a state, or one of the changes that the service has recorded.
  virtual void restore(const JSONValue& /*change*/) {}
};

}  // namespace vorlane::devcloud
