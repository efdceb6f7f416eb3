#include "cloud/API.h"

#include "base/Redaction.h"
#include "support/TaskHarness.h"

#include <gmock/gmock.h>

namespace vorlane::cloud {
namespace {

TEST(API, ABaseThatIsNotNamedFailsEachRequestAndSaysSo) {
  testing::TaskHarness harness;
  const auto network = [](URLRequest request) -> Task<URLResponse> {
    co_return URLResponse{.url = request.url};
  };
  const auto urlFrom = [&](const std::optional<std::string>& base) {
    const auto api = API::at(base, "ledgerlyBase", network, nullptr, nullptr);
    return harness.run<URLResponse>([&] { return api.send(api.request("GET", "/x", Answer::list)); }).url;
  };
  EXPECT_EQ(urlFrom("https://l.test//"), "https://l.test/x");
  EXPECT_THAT([&] { urlFrom(std::nullopt); },
              ::testing::ThrowsMessage<TransportFailure>("the deployment names no \"ledgerlyBase\""));
}

TEST(API, AnAnswerWhoseTreeWouldBeFarLargerThanItsTextIsRefused) {
  const std::pair<std::string, std::string> repeated[] = {{"0", ","}, {"[]", ","}, {"\"\":0", ","}};
  for (const auto& [value, comma] : repeated) {
    std::string text;
    for (int i = 0; i < 60'000; ++i) text += value + comma;
    text.pop_back();
    text = value.contains(':') ? "{" + text + "}" : "{\"a\":[" + text + "]}";
    EXPECT_THAT([&] { parseAnswer(text, Answer::receipt); },
                ::testing::ThrowsMessage<JSONParseFailure>("invalid JSON: more than 50000 values"));
    EXPECT_NO_THROW(parseAnswer(text, Answer::document));
  }
  EXPECT_NO_THROW(parseAnswer("{\"a\":\"" + std::string(200'000, ',') + "\\\"[\"}", Answer::receipt));
}

TEST(API, WordsOfACloudAreQuotedToTwoHundredCharactersOnOneLineWithoutASecret) {
  keepSecret("t0ken-of-ana");
  std::string accents, escaped;
  for (int i = 0; i < 201; ++i) accents += "é";
  EXPECT_EQ(cloud::quoted(accents), "\"" + accents.substr(2) + "…\"");
  EXPECT_EQ(cloud::quoted(accents.substr(2)), "\"" + accents.substr(2) + "\"");
  EXPECT_EQ(cloud::quoted("a\n\"\\\x01"), R"("a\n\"\\\u{1}")");
  // A secret that the cut would go through leaves nothing of itself.
  EXPECT_EQ(excerpt(std::string(195, 'x') + "t0ken-of-ana"), std::string(195, 'x') + "(toke");
}

}  // namespace
}  // namespace vorlane::cloud
