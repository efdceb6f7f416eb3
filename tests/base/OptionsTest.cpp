#include "base/paths/Options.h"

#include <gmock/gmock.h>

namespace vorlane {
namespace {

using testing::ElementsAre;

struct OptionsTest : testing::Test {
  OptionsTest() { options.flag("--loud", loud).value("--file", file).value("--files", files); }

  bool loud = false;
  std::optional<std::string> file, files;
  Options options;
};

TEST_F(OptionsTest, TakesValuesInEitherFormAndOptionsAnywhereBeforeTheEndOfOptions) {
  EXPECT_THAT(options.parse({"a", "--file=--x", "--loud", "-", "--files", "y", "--", "--loud"}),
              ElementsAre("a", "-", "--loud"));
  EXPECT_TRUE(loud);
  EXPECT_EQ(file, "--x");
  EXPECT_EQ(files, "y");
}

TEST_F(OptionsTest, ReadsTheLeadingOptionsAlone) {
  EXPECT_THAT(options.parseLeading({"--file", "x", "do", "--loud"}), ElementsAre("do", "--loud"));
  EXPECT_EQ(file, "x");
  EXPECT_FALSE(loud);
}

TEST_F(OptionsTest, NamesWhatIsWrong) {
  const std::pair<Options::Words, const char*> cases[] = {
      {{"--nope"}, "unknown option --nope"},
      {{"-x"}, "unknown option -x"},
      {{"--loud=yes"}, "unknown option --loud=yes"},
      {{"--file"}, "the option --file needs a value"},
      {{"--file="}, "the option --file needs a value"},
      {{"--file", ""}, "the option --file needs a value"},
      {{"--file", "--loud"}, "the option --file needs a value"},
      {{"--file", "x", "--file=y"}, "the option --file is given twice"},
  };
  for (const auto& [words, complaint] : cases) {
    try {
      options.parse(words);
      ADD_FAILURE() << words[0] << " was taken";
    } catch (const UsageFailure& failure) {
      EXPECT_STREQ(failure.what(), complaint);
    }
  }
}

}  // namespace
}  // namespace vorlane
