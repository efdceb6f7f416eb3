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
#include <memory>
#include <optional>
#include <string>

namespace vorlane {

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

  void signIn(const std::string& sub) {
    account.store(std::make_shared<const SignedIn>(SignedIn{sub, cloud.issueTokens(sub).accessToken}));
  }
  void signOut() { account.store(nullptr); }

  CurrentUser currentUser() {
    return [this]() -> std::optional<std::string> {
      const auto present = account.load();
      return present ? std::optional(present->sub) : std::nullopt;
    };
  }
  BearerSource bearer() {
    return [this]() -> Task<std::optional<std::string>> {
      const auto present = account.load();
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
  std::atomic<int> underWay = 0;
  /// Two requests that concern sheets were on their way at once.
  std::atomic<bool> overlapped = false;
  std::optional<std::string> text(const std::string& sql) { return inFile(sql); }

  std::string cloudFolder = folder.path + "/cloud";
  devcloud::DevCloud cloud{{.directory = cloudFolder}};
  bool started = (cloud.start(), true);
  std::unique_ptr<URLSession> session = makeURLSession(cloud.caFile().string());
  std::atomic<std::shared_ptr<const SignedIn>> account;
  std::chrono::milliseconds patience = std::chrono::seconds(20);
  std::shared_ptr<AgentStore> store = open();
  LedgerlyQueries sheets = queriesOn(store);
  std::shared_ptr<SyncJournal> journal = std::make_shared<SyncJournal>();
  std::shared_ptr<AsyncMutex> exchange = std::make_shared<AsyncMutex>();
  testing::LogRecorder log;
};

}  // namespace vorlane
