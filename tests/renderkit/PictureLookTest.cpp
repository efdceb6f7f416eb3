#include "renderkit/PictureStage.h"

#include <gmock/gmock.h>

#include <cmath>
#include <set>

namespace renderkit::test {
namespace {

using testing::AllOf;
using testing::Gt;
using testing::Lt;

/// How many pixels of a row are neither dark nor light.
int between(const PixelBuffer& picture, int y, int dark = 20, int light = 230) {
  int count = 0;
  for (int x = 0; x < picture.width(); ++x) {
    const int value = PictureStage::at(picture, x, y).red;
    count += value > dark && value < light;
  }
  return count;
}

TEST(PictureLook, smears_what_moves_over_the_shutter_angle_when_traced) {
  PictureStage stage;
  stage.sun(180, 0);
  stage.card("card", 0, 0, 0, 0.25f, 4).shapeId = "shape";
  // 16 pixels a frame, so 8 while the shutter is open for 180 degrees.
  stage.track("shape", {{.px = -0.5}, {.px = 0}, {.px = 0.5}});
  EXPECT_EQ(between(stage.render(1), 32), 0);
  stage.options.rayTracing = true;
  stage.options.samples = 64;
  const auto picture = stage.render(1);
  // The card's 8 pixels and those 8, but for the faintest at both ends.
  EXPECT_NEAR(between(picture, 32), 14, 1);
  EXPECT_GT(PictureStage::at(picture, 32, 32).red, 200);
  stage.bundle.photometry.exposure.shutterAngleDeg = 90;
  stage.bundle.photometry.suns[0].lux *= 2;
  EXPECT_NEAR(between(stage.render(1), 32), 8, 1);
}

TEST(PictureLook, blurs_what_is_out_of_focus_when_traced) {
  PictureStage stage;
  stage.sun(180, 0);
  stage.card("card", 0.5f, 0, 0, 1, 4);
  stage.options.rayTracing = true;
  stage.options.samples = 64;
  stage.camera().focusDistanceM = 10;
  EXPECT_LE(between(stage.render(), 32), 1);
  // The lens is 9.33 mm / 0.1 = 93.3 mm, 33.3 mm wide at T2.8; focused at 2 m, a point at 10 m
  // spreads over 33.3 mm * (10 - 2) / 2 = 133 mm there: 4.3 pixels on each edge, of which one
  // is in the picture.
  stage.camera().focusDistanceM = 2;
  EXPECT_NEAR(between(stage.render(), 32), 4, 1);
  stage.options.rayTracing = false;
  EXPECT_EQ(between(stage.render(), 32), 0);
}

TEST(PictureLook, softens_shadows_by_the_suns_disc_when_traced) {
  for (const bool traced : {false, true}) {
    PictureStage stage;
    stage.options.rayTracing = traced;
    stage.options.samples = 64;
    auto& sun = stage.sun(135, 0, 1.5);
    // A tangent of 0.1; along the light the edge hangs 1.41 m before the wall, which the light
    // meets at 45 degrees: 0.4 m of half-shadow, 12.8 pixels, seen left of the edge itself.
    sun.discRadiusM = 2;
    sun.distanceM = 20;
    stage.card("wall", 0, 0, 0, 6, 6);
    stage.card("edge", 2.8f, 0, 1, 4, 6, "#000000");
    int soft = 0;
    const auto picture = stage.render();
    for (int x = 0; x < 56; ++x) {
      const int value = PictureStage::at(picture, x, 32).red;
      soft += value > 20 && value < 225;
    }
    EXPECT_THAT(soft, traced ? AllOf(Gt(6), Lt(13)) : AllOf(Gt(-1), Lt(2)));
  }
}

TEST(PictureLook, carries_light_once_from_one_surface_to_the_next_when_traced) {
  for (const bool traced : {false, true}) {
    PictureStage stage;
    stage.options.rayTracing = traced;
    stage.options.samples = 64;
    // The sun reaches the red floor alone; the wall gets what the floor gives back.
    stage.sun(0, 80, 4);
    stage.card("wall", 0, 0, 0, 6, 2, "#ffffff");
    stage.quad("floor", {{-3, -1, 3}, {3, -1, 3}, {3, -1, 0}, {-3, -1, 0}}, "#ff0000");
    const auto wall = PictureStage::at(stage.render(), 32, 50);
    EXPECT_EQ(wall.green, 0);
    EXPECT_EQ(wall.red > 40, traced) << wall.red;
  }
}

TEST(PictureLook, steps_the_edge_of_a_hard_shadow_through_its_samples) {
  PictureStage stage;
  stage.sun(135, 20);
  stage.card("wall", 0, 0, 0, 6, 6);
  // An edge that leans, half a metre before the wall, seen nowhere itself.
  stage.quad("edge", {{0.3f, -2, 0.5f}, {2, -2, 0.5f}, {2, 2, 0.5f}, {0.9f, 2, 0.5f}});
  const auto picture = stage.render();
  std::set<int> levels;
  for (int y = 8; y < 56; ++y) {
    for (int x = 0; x < 40; ++x) levels.insert(PictureStage::at(picture, x, y).red);
  }
  // None, a quarter, a half, three quarters and all of the light.
  EXPECT_EQ(levels.size(), 5u);
}

}  // namespace
}  // namespace renderkit::test
