#pragma once

#include "platform/Platform.h"
#include "support/FakeSignalCenter.h"
#include "support/FakeUserDefaults.h"
#include "support/FakeVault.h"

#include <memory>
#include <utility>

namespace vorlane::testing {

/// A network path that is always there.
class FakeNetworkPathMonitor : public NetworkPathMonitor {
 public:
  void start(Executor, Handler handler) override { handler(true); }
  void cancel() override {}
};

/// A network on which a test answers.
class FakeURLSession : public URLSession {
 public:
  explicit FakeURLSession(NetworkRunner answer) : answer_(std::move(answer)) {}
  Task<URLResponse> send(URLRequest request) override { return answer_(std::move(request)); }

 private:
  NetworkRunner answer_;
};

/// A platform in memory: no bus, no network, no folder. Its parts stay at hand for the test.
struct FakePlatform {
  explicit FakePlatform(NetworkRunner network)
      : urlSession(std::make_shared<FakeURLSession>(std::move(network))) {}

  Platform value() const {
    return {.vault = vault,
            .signals = signals,
            .suiteDefaults = suiteDefaults,
            .standardDefaults = standardDefaults,
            .urlSession = urlSession,
            .makeNetworkPathMonitor = [] { return std::make_unique<FakeNetworkPathMonitor>(); },
            .hostName = [] { return std::optional<std::string>("desk"); }};
  }

  std::shared_ptr<FakeVault> vault = std::make_shared<FakeVault>();
  std::shared_ptr<FakeSignalCenter> signals = std::make_shared<FakeSignalCenter>();
  std::shared_ptr<FakeUserDefaults> suiteDefaults = std::make_shared<FakeUserDefaults>();
  std::shared_ptr<FakeUserDefaults> standardDefaults = std::make_shared<FakeUserDefaults>();
  std::shared_ptr<FakeURLSession> urlSession;
};

}  // namespace vorlane::testing
