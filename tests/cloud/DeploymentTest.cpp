#include "cloud/Deployment.h"

#include <gmock/gmock.h>

namespace vorlane {
namespace {

using ::testing::ElementsAre;

TEST(Deployment, TakesEveryKeyAndTrimsTheSlashOfBases) {
  const auto read = Deployment::parse(R"({
    "identityDomain": "id.test", "identityAudience": "https://api.test/", "ledgerlyBase": "https://l.test/",
    "scenewardBase": "https://s.test", "profilePath": "/me/", "renderWebBase": "https://r.test//",
    "renderOrigins": ["https://a.test", "https://b.test"], "updatesHost": "https://u.test/",
    "adminEmails": ["ada@test"], "adminClaimHost": "claims.test", "caFile": "/ca.pem", "assumeOnline": true})");
  const std::vector<std::optional<std::string>> texts{
      read.identityDomain, read.identityAudience, read.ledgerlyBase,   read.scenewardBase, read.profilePath,
      read.renderWebBase,  read.updatesHost,      read.adminClaimHost, read.caFile};
  EXPECT_THAT(texts, ElementsAre("id.test", "https://api.test/", "https://l.test", "https://s.test", "/me/",
                                 "https://r.test", "https://u.test", "claims.test", "/ca.pem"));
  EXPECT_THAT(read.renderOrigins, ElementsAre("https://a.test", "https://b.test"));
  EXPECT_THAT(read.adminEmails, ElementsAre("ada@test"));
  EXPECT_TRUE(read.assumeOnline);
}

// What else may be wrong with the file, and that it is named, is tested with the programs.
TEST(Deployment, NamesTheKeyThatIsWrong) {
  for (const auto& [text, named] :
       {std::pair(R"({"ledgerlyBase": null})", "\"ledgerlyBase\" must be a string"),
        {R"({"renderOrigins": "https://a.test"})", "\"renderOrigins\" must be a list of strings"},
        {R"({"adminEmails": ["ada@test", 7]})", "\"adminEmails\" must be a list of strings"}}) {
    EXPECT_THAT([&] { Deployment::parse(text); },
                ::testing::ThrowsMessage<Failure>(::testing::HasSubstr(named)));
  }
}

}  // namespace
}  // namespace vorlane
