#pragma once

#include "base/Identifiers.h"
#include "base/tasks/AsyncMutex.h"
#include "devcloud/DevCloud.h"
#include "platform/Platform.h"
#include "platform/URLSession.h"
#include "store/LedgerlyQueries.h"
#include "store/ScenewardCheckpointQueue.h"
#include "sync/SyncJournal.h"
#include "tests/store/StoreFixture.h"
#include "tests/support/CheckpointPayload.h"
#include "tests/support/LogRecorder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace vorlane {

inline constexpr std::chrono::milliseconds shortPatience{300}, longDelay{900};

/// What goes wrong with the next request to a path.
struct Trouble {
  std::string name;
  std::function<void(devcloud::Fault&)> order;
  /// The cloud has done what it was asked to, and only its answer is lost.
  bool effect = false;
  bool late = false;
  /// The answer is a good one with a body that says nothing.
  bool empty200 = false;
};

inline Trouble status(int status) {
  return {std::to_string(status), [status](devcloud::Fault& fault) { fault.status = status; }};
}

inline std::vector<Trouble> troubles() {
  // A client sends a request anew when a connection it has used before breaks without a byte.
  const auto cut = [](devcloud::FaultCut where) {
    return [where](devcloud::Fault& fault) {
      fault.cut = where;
      fault.times = 2;
    };
  };
  std::vector<Trouble> all{
      {"cut before", cut(devcloud::FaultCut::before)},
      {"cut in the answer", [](devcloud::Fault& fault) { fault.cut = devcloud::FaultCut::body; }, true},
      {"no JSON", [](devcloud::Fault& fault) { fault.garbage = true; }, false, false, true},
      {"another shape", [](devcloud::Fault& fault) { fault.body = "[1]"; }, false, false, true},
      {"a redirect",
       [](devcloud::Fault& fault) {
         fault.status = 302;
         fault.headers = {{"Location", "/elsewhere"}};
       }},
      {"an answer after the time-out", [](devcloud::Fault& fault) { fault.delay = longDelay; }, true, true},
  };
  for (const int code : {401, 403, 404, 409, 410, 413, 422, 429, 500, 503}) all.push_back(status(code));
  return all;
}

/// Whoever is signed in, with a token of theirs from the local cloud.
struct SignedIn {
  std::string sub;
  std::string token;
};

/// The real local cloud, the real transport and a real store; Ana is signed in.
class CloudBench : public StoreTest {
 protected:
  CloudBench() {
    for (const auto* sub : {"auth0|ana", "auth0|bo"}) {
      devcloud::Person person;
      person.sub = sub;
      person.email = "somebody@example.com";
      person.name = "Somebody";
      person.mcpAccess = true;
      cloud.putPerson(person);
    }
    signIn("auth0|ana");
  }

  void signIn(const std::string& sub) { change(SignedIn{sub, cloud.issueTokens(sub).accessToken}); }
  void signOut() { change(std::nullopt); }

  CurrentUser currentUser() {
    return [this]() -> std::optional<std::string> {
      const auto present = signedIn();
      return present ? std::optional(present->sub) : std::nullopt;
    };
  }
  BearerSource bearer() {
    return [this]() -> Task<std::optional<std::string>> {
      const auto present = signedIn();
      co_return present ? std::optional(present->token) : std::nullopt;
    };
  }
  /// The transport, with the patience of a test.
  NetworkRunner network() {
    return [this](URLRequest request) -> Task<URLResponse> {
      request.timeout = patience;
      const bool ofSheets = request.url.find("/api/user/sheets") != std::string::npos;
      if (ofSheets && ++underWay > 1) overlapped = true;
      auto response = co_await session->send(std::move(request));
      if (ofSheets) --underWay;
      co_return response;
    };
  }
  /// Runs `body` while the next request to the path suffers, then lets the cloud be well again.
  void during(const Trouble& trouble, const std::string& method, const std::string& path,
              const std::function<void()>& body) {
    devcloud::Fault fault{.path = path, .method = method};
    trouble.order(fault);
    cloud.addFault(std::move(fault));
    patience = trouble.late ? shortPatience : std::chrono::milliseconds(20'000);
    body();
    patience = std::chrono::seconds(20);
    cloud.clearFaults();
  }
  /// A request that was given up has been dealt with as well, so that states can be compared.
  static void until(const std::function<bool()>& landed) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!landed() && std::chrono::steady_clock::now() < end)
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_TRUE(landed());
  }
  std::atomic<int> underWay = 0;
  /// Two requests that concern sheets were on their way at once.
  std::atomic<bool> overlapped = false;
  std::optional<std::string> text(const std::string& sql) { return inFile(sql); }

  std::string cloudFolder = folder.path + "/cloud";
  devcloud::DevCloud cloud{{.directory = cloudFolder}};
  bool started = (cloud.start(), true);
  std::unique_ptr<URLSession> session = makeURLSession(cloud.caFile().string());
  std::chrono::milliseconds patience = std::chrono::seconds(20);
  std::shared_ptr<AgentStore> store = open();
  LedgerlyQueries sheets = queriesOn(store);
  std::shared_ptr<SyncJournal> journal = std::make_shared<SyncJournal>();
  std::shared_ptr<AsyncMutex> exchange = std::make_shared<AsyncMutex>();
  testing::LogRecorder log;

 private:
  std::optional<SignedIn> signedIn() {
    const std::scoped_lock hold(lock_);
    return account_;
  }
  void change(std::optional<SignedIn> account) {
    const std::scoped_lock hold(lock_);
    account_ = std::move(account);
  }

  std::mutex lock_;
  std::optional<SignedIn> account_;
};

}  // namespace vorlane
