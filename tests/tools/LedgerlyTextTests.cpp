#include "base/Date.h"
#include "base/JSONArguments.h"
#include "tools/ledgerly/LedgerlyText.h"

#include <gtest/gtest.h>

#include <string>

namespace vorlane {
namespace {

TEST(EntityDecoding, TakesOneLevelOfTheKnownEntitiesOff) {
  const std::pair<const char*, const char*> cases[] = {
      {"&lt;b&gt;&quot;x&quot;&apos;&#39;&#x27;&nbsp;&amp;", "<b>\"x\"'''\xc2\xa0&"},
      {"&amp;lt;", "&lt;"},
      {"<b>&&lt;&</b>", "<b>&<&</b>"},
      {"&eacute; &#60; &LT; &lt", "&eacute; &#60; &LT; &lt"},
  };
  for (const auto& [text, decoded] : cases) EXPECT_EQ(entityDecoded(text), decoded) << text;
}

TEST(LinkNormalising, KeepsWebAddressesOfTheFirstFiveElements) {
  const std::pair<const char*, std::vector<std::string>> cases[] = {
      {R"([{"url":" HTTPS://A.example \n","title":"Tom &amp; Jo"}])", {"HTTPS://A.example Tom & Jo"}},
      {R"([{"url":"http://[::1]:8080/","title":""}])", {"http://[::1]:8080/ ::1"}},
      {R"([{"url":"https:nowhere","title":7}])", {"https:nowhere Link"}},
      {R"(["https://a.example/blue tape?a[]=1|é"])", {"https://a.example/blue tape?a[]=1|é a.example"}},
      {R"(["https://é.example"])", {"https://é.example é.example"}},
      {R"(["ftp://a.example","a.example/x","//a.example","","https://a b.example","javascript:1"])", {}},
      {R"([7,null,{},{"url":1},["https://a.example"]])", {}},
      {R"(["http://1","x","http://3","","http://5","http://6"])", {"http://1 1", "http://3 3", "http://5 5"}},
  };
  for (const auto& [text, expected] : cases) {
    const auto value = parseJSON(text);
    std::vector<std::string> entries;  // the address and the title of each
    for (const auto& link : normalisedLinks(&value, *dateFromStorage("2026-03-01 12:00:00.900"))) {
      const auto& map = link.as_object();
      EXPECT_EQ(json::string(map, "id")->size(), 36U);
      EXPECT_EQ(json::string(map, "addedAt"), "2026-03-01T12:00:00Z");
      entries.push_back(json::stringOr(map, "url") + " " + json::stringOr(map, "title"));
    }
    EXPECT_EQ(entries, expected) << text;
  }
}

}  // namespace
}  // namespace vorlane
