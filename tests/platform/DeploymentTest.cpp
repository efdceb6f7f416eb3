#include "platform/Deployment.h"

#include "TemporaryFolder.h"

#include <gmock/gmock.h>

namespace vorlane {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

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

TEST(Deployment, NamesTheKeyThatIsWrong) {
  for (const auto& [text, named] : std::initializer_list<std::pair<const char*, const char*>>{
           {R"({"legderlyBase": "https://l.test"})", "\"legderlyBase\" is unknown"},
           {R"({"ledgerlyBase": null})", "\"ledgerlyBase\" must be a string"},
           {R"({"assumeOnline": "true"})", "\"assumeOnline\" must be true or false"},
           {R"({"renderOrigins": "https://a.test"})", "\"renderOrigins\" must be a list of strings"},
           {R"({"adminEmails": ["ada@test", 7]})", "\"adminEmails\" must be a list of strings"},
           {"", "invalid JSON"}}) {
    EXPECT_THAT([&] { Deployment::parse(text); }, ThrowsMessage<Failure>(HasSubstr(named))) << text;
  }
}

TEST(Deployment, AFileMayBeMissingOnlyInTheDefaultPlaceAndIsNamedWhenItIsWrong) {
  const testing::TemporaryFolder folder;
  const auto path = folder.path("deployment.json");
  EXPECT_EQ(Deployment::load(path, false).identityDomain, "REPLACE_WITH_IDENTITY_DOMAIN");
  EXPECT_THAT([&] { Deployment::load(path, true); }, ThrowsMessage<Failure>(HasSubstr(path)));
  folder.write("deployment.json", R"({"adminEmails": {}})");
  EXPECT_THAT([&] { Deployment::load(path, false); },
              ThrowsMessage<Failure>(::testing::AllOf(HasSubstr(path), HasSubstr("\"adminEmails\""))));
}

}  // namespace
}  // namespace vorlane
