#include "renderkit/Failure.h"
#include "renderkit/PictureStage.h"
#include "renderkit/picture/EmbreeScene.h"
#include "renderkit/picture/ImageDecoder.h"
#include "renderkit/picture/PictureEngine.h"
#include "renderkit/shot/RenderError.h"
#include "renderkit/shot/Shot.h"
#include "renderkit/video/PixelBufferFactory.h"

#include <gmock/gmock.h>

#include <cmath>
#include <functional>
#include <limits>

namespace renderkit::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double inf = std::numeric_limits<double>::infinity();

/// A scene with one of everything whose numbers can be spoilt.
void addEverything(PictureStage& stage, bool traced) {
  stage.options.rayTracing = traced;
  stage.options.samples = 4;
  stage.bundle.manifest.width = stage.bundle.manifest.height = 16;
  stage.bundle.manifest.burnIn.settings = true;
  stage.sun(150, 20);
  stage.ambient(0.1);
  stage.card("card", 0, 0, 0, 1, 1).shapeId = "shape";
  stage.track("shape", {{}, {.px = 0.1}});
  stage.bundle.photometry.lights = {
      {.id = "card", .luxAt10ft = 100, .beamAngleDeg = 40, .dimmer = 1, .lightOn = true}};
}

TEST(PictureFault, renders_whatever_number_is_not_one) {
  using Spoil = std::function<void(PictureStage&, double)>;
  const std::pair<const char*, Spoil> rows[] = {
      {"matrix", [](auto& s, double v) { s.bundle.meshTable.records[0].localMatrix[5] = v; }},
      {"opacity", [](auto& s, double v) { s.bundle.meshTable.records[0].material.opacity = v; }},
      {"track", [](auto& s, double v) { s.bundle.animation.tracks[0].perFrame[1].qx = v; }},
      {"camera pose", [](auto& s, double v) { s.camera().pose.px = v; }},
      {"camera rotation", [](auto& s, double v) { s.camera().pose.qw = v; }},
      {"fov", [](auto& s, double v) { s.camera().fovDeg = v; }},
      {"focus", [](auto& s, double v) { s.camera().focusDistanceM = v; }},
      {"azimuth", [](auto& s, double v) { s.bundle.photometry.suns[0].azDeg = v; }},
      {"sun's lux", [](auto& s, double v) { s.bundle.photometry.suns[0].lux = v; }},
      {"disc", [](auto& s, double v) { s.bundle.photometry.suns[0].discRadiusM = v; }},
      {"kelvin", [](auto& s, double v) { s.bundle.photometry.suns[0].cctK = v; }},
      {"rated", [](auto& s, double v) { s.bundle.photometry.lights[0].luxAt10ft = v; }},
      {"beam", [](auto& s, double v) { s.bundle.photometry.lights[0].beamAngleDeg = v; }},
      {"penumbra", [](auto& s, double v) { s.bundle.photometry.lights[0].penumbra = v; }},
      {"dimmer", [](auto& s, double v) { s.bundle.photometry.lights[0].dimmer = v; }},
      {"height", [](auto& s, double v) { s.bundle.photometry.lights[0].heightM = v; }},
      {"ambient", [](auto& s, double v) { s.bundle.photometry.ambient.lux = v; }},
      {"iso", [](auto& s, double v) { s.bundle.photometry.exposure.iso = v; }},
      {"constant", [](auto& s, double v) { s.bundle.photometry.constants.incidentConstantFlat = v; }},
  };
  for (const bool traced : {false, true}) {
    for (const auto& [name, spoil] : rows) {
      for (const double value : {nan, inf, -inf, 0.0, 1e300, -1e-300}) {
        PictureStage stage;
        addEverything(stage, traced);
        spoil(stage, value);
        EXPECT_NO_THROW(stage.render(1)) << name << value;
      }
    }
  }
}

TEST(PictureFault, sees_past_triangles_and_matrices_that_have_collapsed) {
  for (const bool traced : {false, true}) {
    PictureStage stage;
    stage.options.rayTracing = traced;
    stage.sun(180, 0);
    const auto big = std::numeric_limits<float>::max();
    stage.mesh("points", {0, 0, 1, 0, 0, 1, 0, 0, 1}, {0, 1, 2});
    stage.mesh("lines", {-1, 0, 1, 0, 0, 1, 1, 0, 1}, {0, 1, 2});
    stage.mesh("no numbers", {static_cast<float>(nan), 0, 1, 1, 0, 1, 0, 1, 1}, {0, 1, 2});
    stage.mesh("endless", {-big, -big, 1, big, -big, 1, 0, big, 1}, {0, 1, 2});
    stage.mesh("empty", {}, {});
    stage.card("flat", 0, 0, 1, 1, 1).localMatrix[0] = 0;
    stage.card("behind", 0, 0, 0, 4, 4, "#ff0000");
    EXPECT_EQ(PictureStage::at(stage.render(), 32, 32), (Shown{238, 0, 0}));
  }
}

TEST(PictureFault, names_the_mesh_that_memory_does_not_suffice_for) {
  auto geometry = std::make_shared<MeshGeometry>();
  geometry->positions.resize(9 * 5000, 1);
  geometry->positions.reserve(9 * 5000 + 1);
  for (std::uint32_t i = 0; i < 15000; ++i) {
    geometry->positions[3 * i] = static_cast<float>(i % 7);
    geometry->indices.push_back(i);
  }
  picture::Workers workers(2);
  try {
    picture::EmbreeScene(
        {{.geometry = geometry}}, [](std::size_t) { return std::string("m1"); }, workers, 10'000);
    FAIL();
  } catch (const RenderError& error) {
    EXPECT_EQ(error.text(), "[render] mesh build failed: mesh m1: out of memory");
  }
}

TEST(PictureFault, keeps_the_colour_where_a_texture_cannot_be_used) {
  const std::string png("\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\0\xff\xff\0\0\xff\xff\b\6\0\0\0\xe2\xb8\xb7\x7a",
                        33);
  for (const auto& file :
       {std::string(), std::string("BM no such format"), png, std::string("\xff\xd8\xff\xe0 cut off")}) {
    PictureStage stage;
    stage.sun(180, 0);
    stage.card("card", 0, 0, 0, 4, 4, "#ff0000").material.textureRef = "map";
    stage.bundle.textures["map"] = Bytes(file);
    EXPECT_EQ(PictureStage::at(stage.render(), 32, 32), (Shown{238, 0, 0}));
    EXPECT_THAT(stage.notices.take(), ElementsAre(HasSubstr("the texture \"map\" cannot be used")));
    EXPECT_THROW(picture::decodeImage(stage.bundle.textures["map"].span()), picture::ImageError);
  }
}

TEST(PictureFault, shows_a_million_instances_of_one_mesh) {
  auto geometry = std::make_shared<MeshGeometry>();
  geometry->positions.reserve(10);
  geometry->positions = {-0.4f, -0.4f, 0, 0.4f, -0.4f, 0, 0, 0.4f, 0};
  geometry->indices = {0, 1, 2};
  picture::Workers workers(2);
  picture::EmbreeScene scene(
      std::vector<picture::Instance>(1'000'000, {.geometry = geometry}),
      [](std::size_t) { return std::string(); }, workers);
  for (std::size_t i = 0; i < scene.count(); ++i) {
    picture::Affine place;
    place.origin = {static_cast<float>(i % 1000), static_cast<float>(i / 1000), 0};
    scene.move(i, {place, place, place});
  }
  scene.commit();
  picture::View view{.ambient = {3, 3, 3}};
  view.camera.poses.fill({.position = {500, 500, 3}});
  auto picture = PixelBufferFactory(16, 16).buffer();
  picture::PictureEngine(scene, workers, 16, 16, {}).render(view, picture, {});
  EXPECT_THAT(scene.bounds()->upper.x, testing::FloatNear(999.4f, 0.01f));
  EXPECT_EQ(PictureStage::at(picture, 8, 8), (Shown{236, 236, 236}));
}

TEST(PictureFault, ends_soon_after_a_stop_was_requested) {
  PictureStage stage;
  addEverything(stage, true);
  stage.bundle.manifest.width = stage.bundle.manifest.height = 4096;
  std::stop_source stop;
  stop.request_stop();
  EXPECT_THROW(stage.render(0, stop.get_token()), CancelledFailure);
}

}  // namespace
}  // namespace renderkit::test
