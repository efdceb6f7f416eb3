#include "renderkit/PictureStage.h"
#include "renderkit/picture/Exposure.h"
#include "renderkit/picture/LightColor.h"
#include "renderkit/picture/ToneCurve.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <numbers>

namespace renderkit::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char* grey18 = "#767676";  // linear 0.1812, sRGB 118
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

struct Meter {
  MeterMode mode;
  double iso, tStop, angle, fps;
  double lux;  // that an 18 % card must get to be mid grey
};

TEST(PictureExposure, meters_light_by_the_exposure_triangle) {
  const Meter rows[] = {
      {MeterMode::incidentFlat, 800, 2.8, 180, 24, 117.6},  // 250 * 7.84 / (1/48 * 800)
      {MeterMode::incidentDome, 800, 2.8, 180, 24, 150.528},
      {MeterMode::incidentFlat, 100, 16, 172.8, 25, 33333.3333},
      // 12.5 * 7.84 / (1/48 * 800) = 5.88 cd/m², which 18 % of pi / 0.18 times as many lux give.
      {MeterMode::reflected, 800, 2.8, 180, 24, 102.6254},
  };
  for (const auto& row : rows) {
    PhotometryDoc document;
    document.exposure = {row.iso, row.tStop, row.angle, row.fps, row.mode};
    Notices notices;
    EXPECT_NEAR(picture::exposure(document, notices).meteredLux(), row.lux, row.lux * 1e-6);
    EXPECT_THAT(notices.take(), ElementsAre());
  }
}

TEST(PictureExposure, shows_light_as_it_is_when_the_numbers_are_no_exposure) {
  for (const auto& [iso, tStop, angle, fps] : {std::array{0.0, 2.8, 180.0, 24.0},
                                               {800.0, -1.0, 180.0, 24.0},
                                               {800.0, 2.8, 0.0, 24.0},
                                               {800.0, 2.8, 180.0, nan},
                                               {1e-300, 1e300, 1.0, 1.0}}) {
    PhotometryDoc document;
    document.exposure = {iso, tStop, angle, fps, MeterMode::incidentFlat};
    Notices notices;
    EXPECT_EQ(picture::exposure(document, notices).scale, 1);
    EXPECT_THAT(notices.take(), ElementsAre(HasSubstr("the exposure is not one")));
  }
}

TEST(PictureExposure, rolls_off_above_a_knee_and_is_exact_below) {
  const std::pair<float, float> rows[] = {{-1, 0},          {0.18f, 0.18f}, {0.6f, 0.6f}, {0.7f, 0.68848f},
                                          {1.0f, 0.85285f}, {4, 0.99992f},  {NAN, 0},     {INFINITY, 1}};
  for (const auto& [linear, shown] : rows) EXPECT_NEAR(picture::shoulder(linear), shown, 1e-5f) << linear;
  std::uint8_t pixel[4];
  picture::ToneCurve().write({0.18f, 0.5f, 0.0f}, pixel);
  EXPECT_THAT(pixel, ElementsAre(0, 188, 118, 255));
}

TEST(PictureExposure, gives_temperatures_the_colours_that_film_people_know) {
  // From the published chromaticities of the black body and of daylight.
  const std::pair<double, picture::Vector3> rows[] = {
      {6504, {1, 1, 1}},
      {3200, {1.680f, 0.866f, 0.326f}},
      {2000, {2.520f, 0.647f, 0.020f}},
      {5600, {1.091f, 0.989f, 0.841f}},
      {10000, {0.824f, 1.012f, 1.403f}},
      {nan, {1, 1, 1}},
  };
  for (const auto& [kelvin, expected] : rows) {
    const auto color = picture::colorOfTemperature(kelvin);
    EXPECT_NEAR(color.x, expected.x, 0.01f) << kelvin;
    EXPECT_NEAR(color.y, expected.y, 0.01f) << kelvin;
    EXPECT_NEAR(color.z, expected.z, 0.01f) << kelvin;
    EXPECT_NEAR(picture::luminance(color), 1, 1e-5f) << kelvin;
  }
}

/// A card that gets the metered illuminance from each kind of light, with both engines' settings.
TEST(PictureExposure, shows_an_18_percent_card_in_metered_light_as_mid_grey) {
  enum Source { frontal, slanting, ambient, rated, lumens };
  for (const bool traced : {false, true}) {
    for (const auto source : {frontal, slanting, ambient, rated, lumens}) {
      PictureStage stage;
      stage.options.rayTracing = traced;
      stage.card("card", 0, 0, 0, 6, 6, grey18);
      if (source == frontal) stage.sun(180, 0);
      if (source == slanting) stage.sun(120, 0, 2);  // 60 degrees off the card's axis
      if (source == ambient) stage.ambient(1);
      if (source == rated || source == lumens) {
        // Four metres in front of the card, looking at it.
        stage.track("key", {{.pz = 4}});
        auto& light = stage.bundle.photometry.lights.emplace_back(PhotometryLight{
            .id = "key", .beamAngleDeg = 60, .dimmer = 0.5, .colorHex = "#ffffff", .lightOn = true});
        const double candela = 2 * 16 * stage.meteredLux();
        if (source == rated) light.luxAt10ft = candela / (3.048 * 3.048);
        light.outputLumens = source == rated ? 7 : candela * 2 * std::numbers::pi * (1 - std::sqrt(0.75));
      }
      // The lights' level away from the middle falls with distance; one pixel is enough.
      EXPECT_EQ(PictureStage::at(stage.render(), 32, 32), (Shown{118, 118, 118})) << traced << source;
      EXPECT_THAT(stage.notices.take(), ElementsAre());
    }
  }
}

}  // namespace
}  // namespace renderkit::test
