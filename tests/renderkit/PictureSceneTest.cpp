#include "renderkit/PictureStage.h"

#include <gmock/gmock.h>

#include <cmath>

namespace renderkit::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

constexpr Shown black{0, 0, 0}, white{238, 238, 238};  // linear 1 behind the shoulder
constexpr Shown red{238, 0, 0};

struct Probe {
  int x, y;
  Shown shown;
};

void expect(const PixelBuffer& picture, const std::vector<Probe>& probes, const std::string& what = "") {
  for (const auto& [x, y, shown] : probes) {
    const auto is = PictureStage::at(picture, x, y);
    EXPECT_LE(
        std::abs(is.red - shown.red) + std::abs(is.green - shown.green) + std::abs(is.blue - shown.blue), 3)
        << what << " at " << x << ", " << y << ": " << is.red << " " << is.green << " " << is.blue;
  }
}

/// Both values of the ray-tracing choice have to show the same.
class PictureScene : public testing::TestWithParam<bool> {
 protected:
  PictureScene() { stage.options.rayTracing = GetParam(); }
  PictureStage stage;
};
INSTANTIATE_TEST_SUITE_P(rayTracing, PictureScene, testing::Bool());

TEST_P(PictureScene, puts_a_card_on_the_pixels_that_it_covers) {
  stage.sun(180, 0);
  // 16 by 8 pixels, its middle 16 pixels right of the picture's and 8 above.
  stage.card("card", 0.5f, 0.25f, 0, 0.5f, 0.25f);
  const auto picture = stage.render();
  expect(
      picture,
      {{40, 20, white}, {55, 27, white}, {39, 24, black}, {56, 24, black}, {48, 19, black}, {48, 28, black}});
  // Turned a quarter about z, then moved left: the local matrix first.
  stage.bundle.meshTable.records[0].localMatrix = {0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
  stage.bundle.meshTable.records[0].shapeId = "shape";
  stage.track("shape", {{.px = -0.25}});
  expect(stage.render(),
         {{12, 8, white}, {19, 23, white}, {11, 16, black}, {20, 16, black}, {16, 24, black}});
}

TEST_P(PictureScene, lights_from_where_the_sun_stands) {
  // A post casts its shadow on a wall behind it, away from the sun.
  struct Row {
    double az, el;
    int x, y;
  };
  for (const auto& row : {Row{135, 0, 16, 32}, {225, 0, 48, 32}, {180, 45, 32, 48}, {180, -45, 32, 16}}) {
    PictureStage shot;
    shot.options.rayTracing = GetParam();
    shot.sun(row.az, row.el);
    shot.card("wall", 0, 0, 0, 6, 6);
    shot.card("post", 0, 0, 0.5f, 0.125f, 0.125f).shapeId = "post";
    const auto picture = shot.render();
    for (const auto [x, y] : {std::pair{16, 32}, {48, 32}, {32, 48}, {32, 16}}) {
      EXPECT_EQ(PictureStage::at(picture, x, y).red < 100, x == row.x && y == row.y)
          << row.az << " " << x << " " << y;
    }
  }
}

TEST_P(PictureScene, fills_each_of_two_opposite_suns_shadows_with_the_other) {
  stage.sun(90, 45, 0.5).colorOverrideHex = "#ff0000";
  stage.sun(270, 45, 0.5).colorOverrideHex = "#00ff00";
  // Seen from above: a board stands on its edge on the ground.
  stage.camera().pose = {.py = 10, .qx = -std::sqrt(0.5), .qw = std::sqrt(0.5)};
  stage.quad("ground", {{-3, 0, 3}, {3, 0, 3}, {3, 0, -3}, {-3, 0, -3}}, "#404040");
  stage.quad("board", {{0, 0, 3}, {0, 0, -3}, {0, 0.5f, -3}, {0, 0.5f, 3}});
  const auto picture = stage.render();
  // In red light the shadow lies to the left, where green is left alone.
  EXPECT_THAT(PictureStage::at(picture, 24, 32).red, testing::Lt(20));
  EXPECT_THAT(PictureStage::at(picture, 40, 32).green, testing::Lt(20));
  // What the board throws back comes on top.
  EXPECT_NEAR(PictureStage::at(picture, 24, 32).green, PictureStage::at(picture, 4, 32).green, 12);
  EXPECT_NEAR(PictureStage::at(picture, 40, 32).red, PictureStage::at(picture, 60, 32).red, 12);
}

TEST_P(PictureScene, shows_through_a_window_as_much_as_it_lets_through_and_lightens_its_shadow) {
  stage.sun(135, 0, std::sqrt(2.0)).colorOverrideHex = "#ffffff";
  stage.card("wall", 0, 0, 0, 6, 6, "#bcbcbc");  // linear 0.5
  auto& window = stage.card("window", 0.25f, 0, 0.5f, 0.5f, 4, "#ff0000");
  const auto wall = Shown{188, 188, 188};
  struct Row {
    double opacity;
    Shown through, shadow;
  };
  // Half of red and half of a half; 0.5 of the wall's light, and none.
  for (const auto& row : {Row{0, wall, wall}, {1, red, black}, {0.5, {221, 137, 137}, {137, 137, 137}}}) {
    stage.bundle.meshTable.records[1].material.opacity = row.opacity;
    window.material.opacity = row.opacity;
    // Column 40 sees the window, behind which its shadow has moved to the columns from 15 on.
    expect(stage.render(), {{46, 32, row.through}, {22, 32, row.shadow}, {60, 32, wall}},
           std::to_string(row.opacity));
  }
}

TEST_P(PictureScene, hides_the_back_of_what_is_not_double_sided) {
  stage.sun(180, 0);
  const std::vector<Point> turned = {{-1, -1, 0}, {-1, 1, 0}, {1, 1, 0}, {1, -1, 0}};
  stage.quad("card", turned);
  expect(stage.render(), {{32, 32, black}});
  stage.bundle.meshTable.records[0].material.doubleSided = true;
  expect(stage.render(), {{32, 32, white}});
  // Mirrored, its front looks here.
  stage.bundle.meshTable.records[0].material.doubleSided = false;
  stage.bundle.meshTable.records[0].localMatrix[10] = -1;
  expect(stage.render(), {{32, 32, white}});
}

TEST_P(PictureScene, lays_a_textures_first_row_at_the_top_and_reads_it_as_srgb) {
  stage.sun(180, 0);
  stage.card("card", 0, 0, 0, 2, 2).material.textureRef = "map";
  const std::vector<std::string> pixels = {"#ff0000", "#bcbcbc", "#0000ff", "#ffffff"};
  for (const auto* encoder : {"png", "mjpeg", "libwebp"}) {
    stage.texture("map", encoder, 2, 2, pixels);
    stage.bundle.meshTable.records[0].material.textureRef = "map";
    const auto picture = stage.render();
    // At the middle of each texel; a little is lost in JPEG.
    const auto near = [&](int x, int y, Shown is) {
      const auto shown = PictureStage::at(picture, x, y);
      EXPECT_NEAR(shown.red, is.red, 9) << encoder << x << y;
      EXPECT_NEAR(shown.green, is.green, 9) << encoder << x << y;
      EXPECT_NEAR(shown.blue, is.blue, 9) << encoder << x << y;
    };
    near(16, 16, {238, 0, 0});
    near(48, 16, {188, 188, 188});
    near(16, 48, {0, 0, 238});
    near(48, 48, white);
    EXPECT_THAT(stage.notices.take(), ElementsAre());
  }
}

TEST_P(PictureScene, cuts_out_what_a_texture_leaves_clear) {
  stage.sun(180, 0);
  stage.card("behind", 0, 0, -1, 4, 4, "#ff0000");
  stage.card("card", 0, 0, 0, 2, 2).material.textureRef = "map";
  stage.texture("map", "png", 2, 1, {"#ffffff00", "#ffffffff"});
  const auto picture = stage.render();
  expect(picture, {{20, 32, red}, {44, 32, white}});
}

TEST_P(PictureScene, stands_lights_at_their_mesh_else_at_their_track) {
  stage.card("wall", 0, 0, 0, 6, 6);
  auto& light = stage.bundle.photometry.lights.emplace_back(PhotometryLight{.id = "lamp",
                                                                            .name = "Lamp",
                                                                            .luxAt10ft = 100,
                                                                            .beamAngleDeg = 20,
                                                                            .dimmer = 1,
                                                                            .colorHex = "#ffffff",
                                                                            .lightOn = true});
  // At its own height, whatever the node's; looking along the node's -Z, and down where it is told to.
  light.heightM = 0.5;
  const auto brightest = [&] {
    const auto picture = stage.render();
    std::pair<int, int> sum{0, 0};
    int count = 0;
    for (int y = 0; y < 64; ++y) {
      for (int x = 0; x < 64; ++x) {
        if (PictureStage::at(picture, x, y).red < 30) continue;
        sum.first += x, sum.second += y, ++count;
      }
    }
    return count == 0 ? std::pair{-1, -1} : std::pair{sum.first / count, sum.second / count};
  };
  stage.render();
  EXPECT_THAT(stage.notices.take(), ElementsAre(HasSubstr("\"Lamp\" (lamp) stands at no mesh and no track"),
                                                HasSubstr("neutral dome")));
  stage.ambient(1e-6);
  stage.track("lamp", {{.px = 0.5, .py = 9, .pz = 2}});
  EXPECT_THAT(brightest(), Pair(47, 15));
  light.aimAngleRad = std::atan(0.25);
  EXPECT_THAT(brightest(), Pair(47, 32));
  light.aimAngleRad = 0;
  // A housing around the light, which shades nothing of it.
  auto& housing = stage.card("housing", 0, 0, 0, 0.1f, 0.1f);
  housing.localMatrix[12] = -0.5;
  housing.localMatrix[14] = 2;
  housing.localMatrix[13] = 0.5;
  housing.shapeId = "lamp";
  stage.bundle.animation.tracks.clear();
  EXPECT_THAT(brightest(), Pair(15, testing::AnyOf(15, 16)));
  light.lightOn = false;
  EXPECT_THAT(brightest(), Pair(-1, -1));
  EXPECT_THAT(stage.notices.take(), ElementsAre());
}

TEST_P(PictureScene, shows_the_whole_scene_from_three_quarters_when_there_is_no_camera) {
  stage.bundle.animation.cameras.clear();
  stage.card("card", 30, 5, -7, 8, 8).material.doubleSided = true;
  const auto picture = stage.render();
  // Without any light a neutral dome lights it.
  EXPECT_THAT(stage.notices.take(), ElementsAre(HasSubstr("neutral dome")));
  EXPECT_GT(PictureStage::at(picture, 32, 32).red, 200);
}

TEST_P(PictureScene, keeps_what_is_dark_by_its_numbers_dark) {
  stage.card("card", 0, 0, 0, 6, 6);
  stage.sun(180, 0, 0);
  expect(stage.render(), {{32, 32, black}});
  EXPECT_THAT(stage.notices.take(), ElementsAre());
}

TEST_P(PictureScene, gives_the_same_bytes_on_any_number_of_threads) {
  stage.bundle.manifest.width = 70;
  stage.sun(150, 30).discRadiusM = 1;
  stage.bundle.photometry.suns[0].distanceM = 20;
  stage.ambient(0.2);
  for (int i = 0; i < 30; ++i) {
    const auto f = static_cast<float>(i);
    auto& card =
        stage.card("c" + std::to_string(i), std::sin(f), std::cos(2 * f), f / 30, 0.4f, 0.3f, "#8090a0");
    card.material.opacity = i % 3 == 0 ? 0.5 : 1;
    card.material.doubleSided = i % 2 == 0;
    // Two in one place: which of them is seen must not depend on chance.
    if (i == 20) stage.card("same", std::sin(f), std::cos(2 * f), f / 30, 0.4f, 0.3f, "#ff0000");
  }
  stage.options.threads = 1;
  const auto one = bytesOf(stage.render());
  for (const int threads : {2, 5}) {
    stage.options.threads = threads;
    EXPECT_EQ(bytesOf(stage.render()), one) << threads;
  }
}

}  // namespace
}  // namespace renderkit::test
