#include "base/Date.h"
#include "base/JsonArguments.h"
#include "tools/ledgerly/LedgerlyText.h"

#include <gtest/gtest.h>

#include <string>

namespace vorlane {
namespace {

TEST(EntityDecoding, TakesOneLevelOfTheKnownEntitiesOff) {
  const std::pair<const char*, const char*> cases[] = {
      {"&lt;b&gt;&quot;x&quot;&apos;&#39;&#x27;&amp;", "<b>\"x\"'''&"},
      {"&nbsp;", "\xc2\xa0"},
      {"&amp;lt;", "&lt;"},
      {"&&lt;&", "&<&"},
      {"&eacute; &#60; &LT; &lt", "&eacute; &#60; &LT; &lt"},
      {"<p>real &amp; <b>HTML</b></p>", "<p>real & <b>HTML</b></p>"},
  };
  for (const auto& [text, decoded] : cases) EXPECT_EQ(entityDecoded(text), decoded) << text;
}

/// "URL TITLE" of each entry.
std::vector<std::string> linksOf(const char* json) {
  const auto value = parseJSON(json);
  std::vector<std::string> entries;
  for (const auto& link : normalisedLinks(&value, *dateFromStorage("2026-03-01 12:00:00.900"))) {
    EXPECT_EQ(link.at("id").as_string().size(), 36U);
    EXPECT_EQ(link.at("addedAt").as_string(), "2026-03-01T12:00:00Z");
    entries.push_back(json::stringOr(link.as_object(), "url") + " " +
                      json::stringOr(link.as_object(), "title"));
  }
  return entries;
}

TEST(LinkNormalising, KeepsWebAddressesOfTheFirstFiveElements) {
  const std::pair<const char*, std::vector<std::string>> cases[] = {
      {R"(["https://a.example/x"])", {"https://a.example/x a.example"}},
      {R"([{"url":" HTTPS://A.example \n","title":"Tom &amp; Jo"}])", {"HTTPS://A.example Tom & Jo"}},
      {R"([{"url":"http://[::1]:8080/","title":""}])", {"http://[::1]:8080/ ::1"}},
      {R"([{"url":"https:nowhere","title":7}])", {"https:nowhere Link"}},
      {R"(["ftp://a.example","a.example/x","//a.example","","https://a b.example","javascript:1"])", {}},
      {R"([7,null,{},{"url":1},["https://a.example"]])", {}},
      {R"(["http://1","http://2","bad","http://4","http://5","http://6","http://7"])",
       {"http://1 1", "http://2 2", "http://4 4", "http://5 5"}},
  };
  for (const auto& [json, expected] : cases) EXPECT_EQ(linksOf(json), expected) << json;
}

}  // namespace
}  // namespace vorlane
