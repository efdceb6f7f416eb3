#include "base/Redaction.h"

#include <gtest/gtest.h>

namespace vorlane {
namespace {

TEST(RedactionTest, StrikesOutEachSecretInEveryFormThatACloudMaySendItBackIn) {
  const Redaction redaction({"", "a+b/c=\"", "a+b"});
  const std::pair<const char*, const char*> cases[] = {
      {"as it is: a+b/c=\" a+b", "as it is: (token) (token)"},
      {R"({"t":"a+b/c=\"","u":"a+b\/c=\""})", R"j({"t":"(token)","u":"(token)"})j"},
      {"?t=a%2Bb%2Fc%3D%22&u=a%2bb%2fc%3d%22", "?t=(token)&u=(token)"},
      {"a b", "a b"},
  };
  for (const auto& [text, clean] : cases) EXPECT_EQ(redaction.applied(text), clean);
}

TEST(RedactionTest, TheProcessRemembersItsLastSecretsAndTakesNoShortOneForASecret) {
  keepSecret("of no use");
  for (int i = 0; i < 16; ++i) keepSecret("secret-" + std::to_string(100 + i));
  keepSecret("hello");
  EXPECT_EQ(redacted("hello secret-100 secret-115 of no use"), "hello (token) (token) of no use");
}

}  // namespace
}  // namespace vorlane
