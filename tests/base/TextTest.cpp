#include "base/ConstantTime.h"
#include "base/Encodings.h"
#include "base/Failure.h"
#include "base/Identifiers.h"
#include "base/SHA256.h"
#include "base/Text.h"

#include <gtest/gtest.h>
#include <boost/asio/error.hpp>
#include <boost/system/system_error.hpp>

namespace vorlane {
namespace {

TEST(Text, OnlyWellFormedUTF8IsValid) {
  for (const std::string valid :
       {"", "plain ascii longer than eight bytes", "é", "\xe0\xa0\x80", "\xed\x9f\xbf", "\xf4\x8f\xbf\xbf"}) {
    EXPECT_EQ(validUTF8(valid), valid) << hexText(valid);
  }
  for (const std::string bad : {"\x80", "\xc1\xbf", "\xe0\x9f\xbf", "\xed\xa0\x80", "\xf0\x8f\xbf\xbf",
                                "\xf4\x90\x80\x80", "\xf8\x88\x80\x80\x80", "12345678\xc3", "\xf0\x9f\x98"}) {
    EXPECT_FALSE(isValidUTF8(bad)) << hexText(bad);
    EXPECT_TRUE(isValidUTF8(validUTF8(bad))) << hexText(bad);
  }
  EXPECT_EQ(validUTF8("a\xff\xc3z"), "a\uFFFD\uFFFDz");
}

TEST(Text, IsLoweredAndTrimmedAsPeopleMeanIt) {
  // Character by character: a final sigma is not told apart.
  EXPECT_EQ(lowercased("ÉCLAIR Straße ΑΣ ЖУК"), "éclair straße ασ жук");
  EXPECT_EQ(lowercased("Z\xffY"), "z\xffy");
  EXPECT_EQ(trimmed("\u00a0\u2003a b\u3000\u2028\t\r\n"), "a b");
  for (const char* kept : {"\u200bé", "\xff", "\xa0", "😀"})
    EXPECT_EQ(trimmed(" " + std::string(kept)), kept);
  EXPECT_EQ(percentEncoded("aZ09-._~ +/é\n"), "aZ09-._~%20%2B%2F%C3%A9%0A");
}

TEST(Identifiers, AreRandomUUIDsOfVersion4) {
  for (int i = 0; i < 100; ++i) {
    const auto lower = newLowercaseUUID(), upper = newUppercaseUUID();
    EXPECT_EQ(canonicalUUID(lower), lower);
    EXPECT_EQ(canonicalUUID(upper), asciiLowercased(upper));
    EXPECT_EQ(lower[14], '4');
    EXPECT_NE(std::string("89AB").find(upper[19]), std::string::npos);
    EXPECT_NE(newLowercaseUUID(), lower);
  }
  for (const char* other :
       {"", "0123abcd", "{123abcd-0000-0000-0000-00000000000}", "0123abcd000000000000000000000000",
        "0123abcg-0000-0000-0000-000000000000", "0123abcd-0000-0000-0000-000000000000 "}) {
    EXPECT_EQ(canonicalUUID(other), std::nullopt) << other;
  }
}

TEST(Identifiers, DecimalIntegersAreSignAndDigitsAlone) {
  EXPECT_EQ(decimalInteger("007"), 7);
  EXPECT_EQ(decimalInteger("-12"), -decimalInteger("+12").value());
  EXPECT_EQ(decimalInteger("9223372036854775807"), 9223372036854775807);
  for (const char* other : {"9223372036854775808", "", "+", "+-1", "--1", " 1", "1 ", "1.0", "0x1"}) {
    EXPECT_EQ(decimalInteger(other), std::nullopt) << other;
  }
}

TEST(Digests, AreThoseOfTheStandards) {
  EXPECT_EQ(sha256Hex("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  const std::pair<std::string, std::string> pairs[] = {
      {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"\xfb\xff\xfe", "+//+"}};
  for (const auto& [bytes, text] : pairs) {
    EXPECT_EQ(base64Encoded(bytes), text);
    EXPECT_EQ(base64Decoded(text), bytes);
  }
  for (const char* bad :
       {"Zg", "Zg=", "Zg===", "====", "Z===", "Zm9v\n", "Zm 9v", "Zh==", "Zm9=Zg==", "-__-"}) {
    EXPECT_EQ(base64Decoded(bad), std::nullopt) << bad;
  }
  EXPECT_TRUE(equalInConstantTime("secret", "secret"));
  EXPECT_FALSE(equalInConstantTime("secret", "secres") || equalInConstantTime("secret", "secret "));
}

TEST(Failures, AreDescribedInWords) {
  namespace error = boost::asio::error;
  const boost::system::system_error aborted(error::operation_aborted), refused(error::connection_refused);
  EXPECT_EQ(describe(refused), "Connection refused");
  EXPECT_TRUE(isCancellation(aborted) && isCancellation(CancelledFailure()));
  EXPECT_FALSE(isCancellation(refused) || isCancellation(Failure("x")));
}

}  // namespace
}  // namespace vorlane
