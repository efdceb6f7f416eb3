#include "AuthFixture.h"
#include "auth/JWTClaims.h"

#include <thread>

namespace vorlane::testing {
namespace {

using TokenStore = AuthFixture;

TEST(Tokens, HaveAnExactStoredForm) {
  AuthTokens tokens{"a", {}, {}, Date(std::chrono::seconds(978'307'200 + 5)), "Bearer"};
  EXPECT_EQ(tokens.storedText(), R"({"accessToken":"a","expiresAt":5.0,"tokenType":"Bearer"})");
  tokens = {"a", "i", "", noon + std::chrono::microseconds(123'457), "Bearer"};
  EXPECT_EQ(AuthTokens::fromStored(tokens.storedText()), tokens);
}

TEST(Claims, AreReadFromTheThreePartFormAlone) {
  EXPECT_EQ(claimsLogLine("a.e30.c.d"), "token claims: not a JWT");
  EXPECT_EQ(claimsLogLine("a.!!.c"), "token claims: undecodable");
  EXPECT_EQ(claimsLogLine(jwt(R"({"iss":"ÿ?>~"})")), "token claims iss=ÿ?>~ aud=? exp=?");
  EXPECT_EQ(claimsLogLine(jwt(R"({"iss":null,"aud":["a","b"],"exp":1.5})")),
            R"(token claims iss=null aud=["a","b"] exp=1.5)");
}

TEST(Claims, AnAdministratorIsNamedByTheHostsClaimOrByAnAddressAndNothingElse) {
  const auto names = [](const std::string& access, const std::string& id, const AdministratorRule& rule) {
    return namesAdministrator({access, id, {}, noon, "Bearer"}, rule);
  };
  const AdministratorRule rule{{"boss@vorlane.test", "chefin@vorlane.test"}, "api.vorlane.test"};
  const auto claim = jwt(R"({"https://api.vorlane.test/isAdmin":true})");
  EXPECT_TRUE(names(claim, "", rule));
  EXPECT_TRUE(names(jwt("{}"), jwt(R"({"email":"Boss@Vorlane.test"})"), rule));
  EXPECT_FALSE(names(claim, jwt(R"({"email":"boss@vorlane.test"})"), {}));
  EXPECT_FALSE(names(jwt(R"({"https://api.vorlane.test/isAdmin":"true"})"), "a.b.c", rule));
  EXPECT_FALSE(names(jwt(R"({"https://evil.test/isAdmin":true,"email":["boss@vorlane.test"]})"), "", rule));
}

TEST_F(TokenStore, EachOperationTellsItsStatusAndItsBytesAndNoToken) {
  const auto tokens = tokensOf("ann");
  const auto bytes = std::to_string(tokens.storedText().size());
  store.save(tokens);
  EXPECT_EQ(store.load()->tokens, tokens);
  const std::vector<std::string> lines{"AuthTokenStore.load MISS status=-25300",
                                       "AuthTokenStore.save status=0 bytes=" + bytes,
                                       "AuthTokenStore.load HIT bytes=" + bytes + " decoded=true",
                                       R"(token claims iss=issuer aud=["api"] exp=4)"};
  EXPECT_EQ(log.take(), lines);
  for (const std::string unreadable : {"", "\xff", R"({"accessToken)"}) {
    vault.plant(tokenItem, unreadable);
    EXPECT_EQ(owner(), "signed out");
    const auto size = std::to_string(unreadable.size());
    EXPECT_EQ(log.take()[0], "AuthTokenStore.load HIT bytes=" + size + " decoded=false");
    EXPECT_EQ(vault.bytes(tokenItem), unreadable);
  }
  plant(tokens);
  vault.fail({.update = vault::interactionNotAllowed, .remove = vault::notAvailable});
  EXPECT_THROW(store.save(tokensOf("bob")), AuthError);
  EXPECT_EQ(log.lines().back(), "AuthTokenStore.save status=-25308 bytes=" + bytes);
  store.clear();
  EXPECT_EQ(owner(), "ann");
  EXPECT_EQ(epoch->value(), 1) << "a failing vault loses nothing and announces nothing";
}

TEST_F(TokenStore, OnlyAChangeOfTheOwnerIsAnnouncedAndTheEpochHasRisenBefore) {
  std::string heard;
  const auto epochMoved = notifications.observe(
      auth::ownerEpoch, [&] { heard = "epoch " + std::to_string(epoch->value()) + ", " + owner(); });
  const auto changed = notifications.observe(auth::changed, [&] { heard += ", changed"; });
  // Who is stored next, and the announcements so far.
  const std::pair<std::string, int> steps[] = {{"signed out", 0}, {"nobody", 0},    {"ann", 1}, {"ann", 1},
                                               {"bob", 2},        {"nobody", 3},    {"ann", 4}, {"bob", 5},
                                               {"signed out", 6}, {"signed out", 6}};
  for (const auto& [sub, announced] : steps) {
    auto tokens = tokensOf(sub);
    if (sub == "nobody") tokens.idToken = jwt(R"({"sub":7})");
    sub == "signed out" ? store.clear() : store.save(tokens);
    EXPECT_EQ(owner(), sub);
    EXPECT_EQ(signals.posts(auth::ownerChanged), announced);
    EXPECT_EQ(epoch->value(), announced);
  }
  EXPECT_EQ(heard, "epoch 6, signed out, changed") << "an observer may ask who is signed in";
  signals.post(auth::ownerChanged);  // of another process
  EXPECT_EQ(epoch->value(), 7);
}

TEST_F(TokenStore, AnUnchangedRecordIsReadOnceAndAChangedOrUncertainOneAgain) {
  EXPECT_EQ(ownerTwice(), "signed out, signed out");
  EXPECT_EQ(vault.reads(), 1) << "that there is none is remembered too";
  plant(tokensOf("ann"));
  EXPECT_EQ(ownerTwice(), "ann, ann");
  plant(tokensOf("bob"));
  vault.fail({.read = vault::interactionNotAllowed});
  EXPECT_EQ(owner(), "signed out");
  EXPECT_EQ(log.lines().back(), "AuthTokenStore.load MISS status=-25308");
  vault.fail({});
  EXPECT_EQ(owner(), "bob") << "a vault that is locked for a moment is asked again";
  vault.fail({.stampless = true});
  EXPECT_EQ(ownerTwice(), "bob, bob");
  EXPECT_EQ(vault.reads(), 6);
  vault.fail({});
  store.clear();
  // What overtakes a read, from another process or thread, is seen by the next.
  vault.afterNextRead([this] { plant(tokensOf("ann")); });
  EXPECT_EQ(ownerTwice(), "signed out, ann");
  store.clear();
  vault.afterNextRead([this] { std::thread([this] { store.save(tokensOf("bob")); }).join(); });
  EXPECT_EQ(ownerTwice(), "signed out, bob");
}

}  // namespace
}  // namespace vorlane::testing
