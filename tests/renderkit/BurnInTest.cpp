#include "renderkit/PictureStage.h"
#include "renderkit/burnin/BurnIns.h"
#include "renderkit/video/PixelBufferFactory.h"

#include <gmock/gmock.h>

#include <algorithm>

namespace renderkit::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// Where a picture was changed.
struct Box {
  int left, top, right, bottom;
};

struct Drawn {
  Box box;
  int darkest, lightest;
};

Drawn draw(const PictureStage& stage, int width, int height, double grey, Notices& notices) {
  auto picture = PixelBufferFactory(width, height).solidFrame(grey, grey, grey);
  const int before = PictureStage::at(picture, 0, 0).red;
  BurnIns(stage.bundle, width, height, notices).draw(picture, {.frameIndex = 30, .cameraId = "A"});
  bool opaque = true;
  Drawn drawn{{width, height, -1, -1}, 255, 0};
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      opaque &= picture.row(y)[4 * x + 3] == 255;
      const int value = PictureStage::at(picture, x, y).green;
      if (value == before) continue;
      auto& box = drawn.box;
      box = {std::min(box.left, x), std::min(box.top, y), std::max(box.right, x), std::max(box.bottom, y)};
      drawn.darkest = std::min(drawn.darkest, value);
      drawn.lightest = std::max(drawn.lightest, value);
    }
  }
  EXPECT_TRUE(opaque);
  return drawn;
}

struct Part {
  const char* name;
  void (*ask)(BurnInConfig&);
  /// Where its middle lies, as shares of the safe area; its height at 720 lines is within these.
  double x, y;
  int shortest, tallest;
};

const Part parts[] = {
    {"title", [](BurnInConfig& c) { c.title = true, c.titleText = "Night at the quay"; }, 0.5, 0, 40, 110},
    {"slate", [](BurnInConfig& c) { c.slate = true; }, 0, 0, 40, 80},
    {"settings", [](BurnInConfig& c) { c.settings = true; }, 0, 1, 40, 80},
    {"legal", [](BurnInConfig& c) { c.legal = true, c.legalText = "© Harbour Films. Not for distribution."; },
     0.5, 1, 18, 40},
    {"watermark", [](BurnInConfig& c) { c.watermark = true, c.watermarkLogo = "DRAFT"; }, 0.5, 0.5, 60, 120},
};

TEST(BurnIn, stands_inside_the_safe_area_at_its_place_and_scales_with_the_height) {
  for (const auto& part : parts) {
    PictureStage stage;
    part.ask(stage.bundle.manifest.burnIn);
    const auto small = draw(stage, 1280, 720, 0.5, stage.notices).box;
    EXPECT_GE(small.left, 64) << part.name;
    EXPECT_LE(small.right, 1216) << part.name;
    EXPECT_GE(small.top, 36) << part.name;
    EXPECT_LE(small.bottom, 684) << part.name;
    const int height = small.bottom - small.top;
    EXPECT_GE(height, part.shortest) << part.name;
    EXPECT_LE(height, part.tallest) << part.name;
    if (part.x == 0) EXPECT_NEAR(small.left, 64, 2) << part.name;
    if (part.x == 0.5) EXPECT_NEAR((small.left + small.right) / 2, 640, 6) << part.name;
    if (part.y == 0) EXPECT_NEAR(small.top, 36, 2) << part.name;
    if (part.y == 0.5) EXPECT_NEAR((small.top + small.bottom) / 2, 360, 20) << part.name;
    if (part.y == 1) EXPECT_NEAR(small.bottom, 684, 2) << part.name;
    const auto large = draw(stage, 2560, 1440, 0.5, stage.notices).box;
    EXPECT_NEAR(large.bottom - large.top, 2 * height, 6) << part.name;
  }
}

TEST(BurnIn, can_be_read_on_any_picture) {
  for (const auto& part : parts) {
    PictureStage stage;
    part.ask(stage.bundle.manifest.burnIn);
    for (const double grey : {0.0, 0.5, 1.0}) {
      const auto drawn = draw(stage, 1280, 720, grey, stage.notices);
      // On white the dark ground or rim stands out, on black the letters.
      const auto range = std::max(drawn.lightest, static_cast<int>(grey * 255)) -
                         std::min(drawn.darkest, static_cast<int>(grey * 255));
      EXPECT_GT(range, part.name == std::string("watermark") ? 60 : 140) << part.name << grey;
    }
  }
}

TEST(BurnIn, counts_timecode_in_whole_frames) {
  EXPECT_EQ(timecode(0, 24), "00:00:00:00");
  EXPECT_EQ(timecode(1499, 25), "00:00:59:24");
  EXPECT_EQ(timecode(24 * 3661 + 7, 23.976), "01:01:01:07");
  EXPECT_EQ(timecode(100, 29.97), "00:00:03:10");
}

TEST(BurnIn, draws_a_logo_or_its_name_when_it_cannot_be_decoded) {
  PictureStage stage;
  auto& wanted = stage.bundle.manifest.burnIn;
  wanted.watermark = true;
  wanted.watermarkLogo = "logo";
  stage.texture("logo", "png", 2, 1, {"#00ff00", "#00ff00"});
  const auto logo = draw(stage, 1280, 720, 0, stage.notices);
  EXPECT_EQ(logo.lightest, 153);  // six tenths
  // As high as fits, which makes 454 pixels across, and half a texel that fades at each end.
  EXPECT_NEAR(logo.box.right - logo.box.left, 467, 8);
  EXPECT_THAT(stage.notices.take(), ElementsAre());
  stage.bundle.textures["logo"] = Bytes(std::string_view("nothing"));
  EXPECT_GT(draw(stage, 1280, 720, 0, stage.notices).box.right, 640);
  EXPECT_THAT(stage.notices.take(), ElementsAre(HasSubstr("the watermark \"logo\" cannot be used")));
}

TEST(BurnIn, takes_any_text_and_any_size) {
  for (const auto& [width, height] : {std::pair{16, 16}, {16, 720}, {2048, 16}, {720, 1280}}) {
    for (const auto& text : {std::string(), std::string(100'000, 'W'), std::string("\xff\xfe \0 %s <b>", 11),
                             std::string("港の夜 — מזח — 🎬")}) {
      PictureStage stage;
      stage.bundle.manifest.burnIn = {true, text, true, true, true, text, true, text};
      stage.bundle.manifest.slates = {text, text, text, text};
      const auto box = draw(stage, width, height, 0.5, stage.notices).box;
      EXPECT_GE(box.left, width / 20 - 1) << width << "x" << height;
      EXPECT_LE(box.right, width - width / 20) << width << "x" << height;
    }
  }
}

}  // namespace
}  // namespace renderkit::test
