#include "AuthFixture.h"
#include "auth/AuthSession.h"
#include "base/tasks/Runtime.h"

namespace vorlane::testing {
namespace {

using Token = std::optional<std::string>;
using Refreshing = std::shared_ptr<Started<AuthTokens>>;
const std::string newTokens = R"({"access_token":"new","refresh_token":"r2","expires_in":86400})";
const std::string invalidGrant = R"({"error":"invalid_grant"})";
const std::string sessionChanged = AuthSessionError::sessionChanged().description();

/// A session whose transport holds each request until the test opens the gate.
struct Session : AuthFixture {
  TaskHarness harness;
  LogRecorder sessionLog;
  std::atomic<int> changes = 0, requests = 0, underway = 0;
  Observation counting = notifications.observe(auth::changed, [this] { ++changes; });
  std::shared_ptr<Event> gate = std::make_shared<Event>();
  URLResponse response{200, {}, {}, newTokens};
  std::shared_ptr<AuthSession> session = makeSession(harness.executor());

  std::shared_ptr<AuthSession> makeSession(const Executor& executor) {
    const auto clock = [] { return noon; };
    auto transport = [this](URLRequest) -> Task<URLResponse> {
      ++requests;
      EXPECT_EQ(++underway, 1) << "two refreshes at once";
      co_await std::shared_ptr(gate)->wait();
      --underway;
      co_return response;
    };
    AuthRefreshClient client{"id.vorlane.test", "client", transport, clock};
    return std::make_shared<AuthSession>(
        executor, std::move(client), AuthSession::Storage::of(store), [this] { return epoch->value(); },
        notifications, clock, sessionLog.log());
  }
  /// Signs somebody in with tokens that are due, closes the gate and forgets the traces.
  AuthTokens signIn(const std::string& sub) {
    vault.fail({});
    store.save(tokensOf(sub));
    gate = std::make_shared<Event>();
    changes = requests = 0;
    return tokensOf(sub);
  }
  Refreshing refresh(AuthTokens current) {
    auto started = harness.start<AuthTokens>([this, current] { return session->refresh(current); });
    harness.settle();
    return started;
  }
  void answer(int status) {
    response = {status, {}, {}, status == 200 ? newTokens : invalidGrant};
    gate->set();
    harness.settle();
  }
  /// The new access token, or what the failure says; "no error" while it waits.
  static std::string endOf(const Refreshing& refresh) {
    return refresh->value ? refresh->value->accessToken : describe(refresh->failure);
  }
};

TEST_F(Session, IsUsableUntilAMinuteBeforeTheEndUnlessItCanBeRefreshed) {
  gate->set();
  const std::tuple<int, Token, Token> table[] = {{61, {}, "old"},  {60, {}, {}},       {60, "", {}},
                                                 {60, "r", "new"}, {-999, "r", "new"}, {61, "", "old"}};
  for (const auto& [life, refreshToken, handedOut] : table) {
    store.save({"old", jwt(R"({"sub":"ann","email":"Ann@vorlane.test"})"), refreshToken,
                noon + std::chrono::seconds(life), "Bearer"});
    EXPECT_EQ(session->currentUser().has_value(), handedOut.has_value()) << life;
    EXPECT_EQ(session->isAdminToken({{"ann@vorlane.test"}, {}}), handedOut.has_value()) << life;
    EXPECT_EQ(harness.run<Token>([this] { return session->freshAccessToken(); }), handedOut);
  }
}

TEST_F(Session, TenCallersCauseOneRequestAndShareItsOutcome) {
  const auto unavailable = AuthSessionError::refreshUnavailable("auth0 500: " + invalidGrant);
  const auto signedOut = AuthSessionError::signedOut("auth0 400 invalid_grant: " + invalidGrant);
  // The status, that of storing, what is told and logged, and the changes with one for another owner.
  const std::tuple<int, vault::Status, std::string, std::vector<std::string>, int> table[] = {
      {200, -25308, AuthError::keychain(-25308).description(), {}, 0},
      {500, 0, unavailable.description(), {"AuthSession: refresh deferred — " + unavailable.reason()}, 0},
      {400, 0, signedOut.description(), {"AuthSession: SIGNED OUT — " + signedOut.reason()}, 2},
      {200, 0, "new", {"AuthSession: refreshed OK, expires 2027-01-16 08:00:00 +0000"}, 1},
  };
  for (const auto& [status, storing, end, lines, changed] : table) {
    const auto current = signIn("ann");
    std::vector<Refreshing> callers;
    for (int i = 0; i < 9; ++i) callers.push_back(refresh(current));
    const auto tenth = harness.start<Token>([this] { return session->freshAccessToken(); });
    harness.settle();
    vault.fail({.update = storing});
    answer(status);
    for (const auto& each : callers) EXPECT_EQ(endOf(each), end);
    EXPECT_EQ(tenth->value.value(), end == "new" ? Token("new") : Token());
    EXPECT_EQ(requests, 1);
    EXPECT_EQ(changes, changed) << end;
    EXPECT_EQ(sessionLog.take(), lines);
    ASSERT_EQ(owner(), status == 400 ? "signed out" : "ann");
    if (status != 400) EXPECT_EQ(store.load()->tokens, callers[0]->value.value_or(current));
  }
}

TEST_F(Session, OnlyTheSameStoredTokensUnderTheSameEpochAreSentAndJoin) {
  const auto current = signIn("ann");
  EXPECT_EQ(endOf(refresh(tokensOf("ann", 2))), sessionChanged);
  const auto running = refresh(current);
  // The expiry and the type do not tell tokens apart.
  const auto joined = refresh({current.accessToken, current.idToken, current.refreshToken, Date(), "DPoP"});
  EXPECT_FALSE(joined->ended);
  EXPECT_EQ(endOf(refresh({current.accessToken, {}, current.refreshToken, noon, "Bearer"})), sessionChanged);
  signals.post(auth::ownerChanged);
  EXPECT_EQ(endOf(refresh(current)), sessionChanged);
  answer(200);
  EXPECT_EQ(endOf(joined), sessionChanged) << "the epoch has moved";
  EXPECT_EQ(requests, 1);
}

TEST_F(Session, WhateverTheAnswerItCountsForNobodyWhenTheAccountChangedMeanwhile) {
  const std::function<void()> accountChanges[] = {
      [this] { store.clear(); },
      [this] { store.save(tokensOf("bob")); },
      [this] { plant(tokensOf("ann", 3)); },
      [this] { store.clear(), store.save(tokensOf("ann")); },  // out and in again with the same tokens
      [this] { vault.fail({.read = vault::interactionNotAllowed, .stampless = true}); },
  };
  for (const auto& change : accountChanges) {
    for (const int status : {200, 400, 503}) {
      const auto running = refresh(signIn("ann"));
      change();
      changes = 0;
      const auto stored = vault.bytes(tokenItem);
      answer(status);
      EXPECT_EQ(endOf(running), sessionChanged) << &change - accountChanges;
      EXPECT_EQ(vault.bytes(tokenItem), stored) << &change - accountChanges;
      EXPECT_TRUE(requests == 1 && changes == 0);
      EXPECT_TRUE(sessionLog.lines().empty());
    }
  }
}

TEST_F(Session, TheRefreshSurvivesItsCallersAndIsNotBegunTwice) {
  for (const bool somebodyStays : {false, true}) {
    const auto current = signIn("ann");
    const auto first = refresh(current);
    first->cancel();
    harness.settle();
    EXPECT_TRUE(first->wasCancelled()) << "who is cancelled does not wait for the network";
    const auto second = refresh(current);
    if (!somebodyStays) second->cancel();
    answer(200);
    EXPECT_EQ(second->value.has_value(), somebodyStays);
    EXPECT_EQ(store.load()->tokens.accessToken, "new");
    EXPECT_EQ(requests, 1);
  }
}

TEST_F(Session, SurvivesCallersSignInsAndSignOutsOnManyThreads) {
  Runtime runtime;
  const auto shared = makeSession(runtime.concurrent());
  const auto fresh = [shared] { return shared->freshAccessToken(); };
  std::vector<std::future<Token>> tokens;
  gate->set();
  for (int i = 0; i < 400; ++i) {
    tokens.push_back(co_spawn(runtime.concurrent(), fresh, boost::asio::use_future));
    i % 8 == 0 ? store.clear() : store.save(tokensOf("ann", i));
  }
  for (auto& each : tokens) EXPECT_EQ(each.get().value_or("new"), "new");
  store.save(tokensOf("bob"));
  EXPECT_EQ(await<Token>(runtime.concurrent(), fresh), "new");
  EXPECT_EQ(store.load()->tokens.storedText(), vault.bytes(tokenItem));
  EXPECT_EQ(epoch->value(), signals.posts(auth::ownerChanged));
}

}  // namespace
}  // namespace vorlane::testing
