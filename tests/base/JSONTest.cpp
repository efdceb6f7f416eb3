#include "base/JSON.h"
#include "base/JSONArguments.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>

namespace vorlane {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

/// The document as it is written again, or why it could not be read.
std::string rewritten(std::string_view text) {
  try {
    return writeJSON(parseJSON(text));
  } catch (const JSONParseFailure& failure) {
    return failure.description();
  }
}

std::string nested(std::size_t depth, std::string_view open, std::string_view close) {
  std::string text;
  for (std::size_t i = 0; i < depth; ++i) text += open;
  text += open == "[" ? "" : "1";
  for (std::size_t i = 0; i < depth; ++i) text += close;
  return text;
}

TEST(Json, NumbersAndTextAreReadAndWrittenExactly) {
  for (const char* same :
       {"[4]", "[4.0]", "[-0.0]", "[0.1]", "[1e+22]", "[5e-324]", "[1.7976931348623157e+308]",
        "[0.30000000000000004]", "[9223372036854775807]", "[-9223372036854775808]", "[9223372036854775808]",
        "[18446744073709551615]", "[true,false,null]", "[\"\x7f 12345678 é 😀\"]"}) {
    EXPECT_EQ(rewritten(same), same);
  }
  const std::pair<const char*, const char*> table[] = {
      {"[18446744073709551616]", "[18446744073709551616.0]"},
      {"[-1e-400]", "[-0.0]"},
      {" \t\r\n[ ] \n", "[]"},
      {R"({"é":1,"b":1,"a":{"d":[],"c":{}},"":0,"B":2})", R"({"":0,"B":2,"a":{"c":{},"d":[]},"b":1,"é":1})"},
      {R"({"a":1,"b":0,"a":[2]})", R"({"a":[2],"b":0})"},
      {R"(["\u0000\u001f\b\f\n\r\t\"\\\/"])", R"(["\u0000\u001f\b\f\n\r\t\"\\/"])"},
      {R"(["\ud83d\ude00\u00e9"])", "[\"😀é\"]"},
  };
  for (const auto& [text, expected] : table) EXPECT_EQ(rewritten(text), expected);
}

TEST(Json, EveryDoubleReadsBackAsItself) {
  std::mt19937_64 random(7);
  for (int i = 0; i < 20'000; ++i) {
    const auto value = std::bit_cast<double>(random());
    if (!std::isfinite(value)) continue;
    const auto back = parseJSON(writeJSON(JSONArray{value})).get_array()[0];
    ASSERT_TRUE(back.is_double()) << value;
    ASSERT_EQ(std::bit_cast<std::uint64_t>(back.get_double()), std::bit_cast<std::uint64_t>(value)) << value;
  }
}

TEST(Json, AnythingElseIsRefusedWithTheByteNamed) {
  const std::vector<std::string> refused[] = {
      {"1", "{", "[1,]", "{\"a\":1,}", "{a:1}", "[1] x", "[][]", "[/*c*/]", "['a']", "[tru]", "[1 2]",
       "[\v]"},
      {"[NaN]", "[-]", "[01]", "[.5]", "[1.]", "[0x1]", "{\"a\" 1}", std::string("[\0]", 3)},
      {"\xef\xbb\xbf[]", "[\"\t\"]", "[\"a", "[\"\\x\"]", "[\"\\u12\"]", std::string("[]\0", 3)},
      {"[\"\\ud800\"]", "[\"\\udc00\"]", "[\"\\ud800\\u0041\"]", "{\"\\ud800\":1}", "[\"\xed\xa0\x80\"]"},
      {"[\"\xc0\x80\"]", "[\"\xf5\x80\x80\x80\"]", "[\"\xff\"]", "[\"\xc3\"]", "{\"\xe0\x80\x80\":1}"},
  };
  for (const auto& kind : refused) {
    for (const auto& text : kind) EXPECT_THAT(rewritten(text), StartsWith("invalid JSON at byte ")) << text;
  }
  EXPECT_EQ(rewritten(""), "invalid JSON: the text is empty");
  EXPECT_THAT(rewritten("[1,2"), HasSubstr("unexpected end"));
  EXPECT_THAT(rewritten("[-1e400]"), HasSubstr("number out of range"));
  EXPECT_THROW(parseJSONMap("[]", "params must be an object"), JSONParseFailure);
}

TEST(Json, NestingIsBoundedInReadingAndWriting) {
  for (const auto& [open, close] : {std::pair{"[", "]"}, {"{\"a\":", "}"}}) {
    const auto deepest = nested(jsonDepthLimit, open, close);
    EXPECT_EQ(rewritten(deepest), deepest);
    for (const auto depth : {jsonDepthLimit + 1, std::size_t{1'000'000}}) {
      EXPECT_THAT(rewritten(nested(depth, open, close)), HasSubstr("nesting deeper than 512 levels"));
    }
    // What a tool wraps once more can no longer be stored, and says so.
    std::string out = "before";
    EXPECT_THROW(appendJSON(out, JSONMap{{"document", parseJSON(deepest)}}), JSONWriteFailure);
    EXPECT_THROW(appendJSON(out, JSONValue(JSONArray{1, parseJSON(deepest)})), JSONWriteFailure);
    EXPECT_EQ(out, "before");
  }
}

TEST(Json, WhatALaterReadWouldRefuseIsNotWritten) {
  const JSONValue table[] = {std::nan(""), -std::numeric_limits<double>::infinity(), "\xff", "12345678\xc3",
                             JSONMap{{"\xed\xa0\x80", 1}}};
  for (const auto& value : table) {
    std::string out = "before";
    EXPECT_THROW(appendJSON(out, JSONMap{{"a", 1}, {"b", value}}), JSONWriteFailure);
    EXPECT_EQ(out, "before");
  }
}

TEST(JsonArguments, ValuesAreReadLenientlyByTheirType) {
  const auto map = parseJSONMap(R"({"s":"x","e":"","t":true,"i":7,"w":8.0,"h":8.5,
    "min":-9223372036854775808.0,"over":9223372036854775808.0,"n":null,"o":{"k":1},"a":[1,{}],
    "oo":[{},{"k":2}],"none":[]})");
  const std::tuple<const char*, std::optional<std::int64_t>, std::optional<double>> numbers[] = {
      {"i", 7, 7.0},        {"w", 8, 8.0},
      {"h", {}, 8.5},       {"min", std::numeric_limits<std::int64_t>::min(), -0x1p63},
      {"over", {}, 0x1p63}, {"s", {}, {}},
      {"t", {}, {}},        {"a", {}, {}},
      {"missing", {}, {}}};
  for (const auto& [key, integer, number] : numbers) {
    EXPECT_EQ(json::integer(map, key), integer) << key;
    EXPECT_EQ(json::number(map, key), number) << key;
    EXPECT_EQ(json::stringOr(map, key, "-"), key == std::string_view("s") ? "x" : "-") << key;
    EXPECT_EQ(json::boolean(map, key).has_value(), key == std::string_view("t")) << key;
    EXPECT_EQ(json::arrayOfObjects(map, key), nullptr) << key;
  }
  EXPECT_EQ(json::nonEmptyString(map, "e"), std::nullopt);
  EXPECT_TRUE(json::booleanOr(map, "i", true));
  EXPECT_TRUE(json::object(map, "o") && !json::object(map, "n") && json::objectOrEmpty(map, "a").empty());
  EXPECT_TRUE(json::array(map, "a") && json::arrayOfObjects(map, "oo") && json::arrayOfObjects(map, "none"));
  EXPECT_EQ(json::integer(JSONValue(std::nan(""))), std::nullopt);
}

}  // namespace
}  // namespace vorlane
