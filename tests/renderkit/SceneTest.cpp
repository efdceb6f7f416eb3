#include "renderkit/BundleBuilder.h"
#include "renderkit/shot/BundleSceneBuilder.h"
#include "renderkit/shot/LightPlacement.h"
#include "renderkit/shot/ScenePoser.h"
#include "renderkit/shot/Shot.h"
#include "renderkit/shot/TransformReplay.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <numbers>

namespace renderkit {
namespace {

using BundleSceneBuilder::Vertices;
using testing::failureOf, testing::TestBundle;

const std::vector<float> corner = {0, 0, 0, 1, 0, 0, 0, 1, 0};

TEST(BundleSceneBuilder, GivesEachMeshItsArraysMatrixAndColour) {
  TestBundle made;
  auto& record = made.addMesh("m1", corner, {0, 1, 2});
  record.shapeId = "shape";
  record.localMatrix[12] = 5;
  record.material = {.colorHex = "#ff0000", .opacity = 0.5};
  auto& bare = made.addMesh("m2", {0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1, 1, 0, 1, 0, 1, 1}, {});
  bare.index.reset();
  const auto scene = BundleSceneBuilder::build(made.decoded());
  ASSERT_EQ(scene.meshes.size(), 2U);
  const auto& mesh = scene.meshes[0];
  EXPECT_EQ(mesh.entity.mesh->positions, corner);
  EXPECT_EQ(mesh.entity.mesh->indices, (std::vector<std::uint32_t>{0, 1, 2}));
  EXPECT_EQ(mesh.shapeId, "shape");
  EXPECT_EQ(mesh.entity.transform.at(0, 3), 5);
  EXPECT_EQ(mesh.entity.material.color, (Color{1, 0, 0, 0.5}));
  // Without an index six vertices are two triangles.
  EXPECT_EQ(scene.meshes[1].entity.mesh->indices, (std::vector<std::uint32_t>{0, 1, 2, 3, 4, 5}));
}

TEST(BundleSceneBuilder, SharesTheArraysOfMeshesWithTheSameRanges) {
  TestBundle made;
  made.addMesh("m1", corner, {0, 1, 2});
  made.meshTable.records.push_back(made.meshTable.records[0]);
  const auto bundle = made.decoded();
  const auto scene = BundleSceneBuilder::build(bundle);
  EXPECT_EQ(scene.meshes[0].entity.mesh, scene.meshes[1].entity.mesh);
  EXPECT_EQ(BundleSceneBuilder::build(bundle, Vertices::checkOnly).meshes[0].entity.mesh, nullptr);
}

struct Unsound {
  std::function<void(TestBundle&, MeshRecord&)> change;
  const char* text;
};

TEST(BundleSceneBuilder, RefusesAMeshThatIsNotSound) {
  const Unsound cases[] = {
      {[](auto&, auto& mesh) { mesh.localMatrix.pop_back(); }, "localMatrix must have 16 entries"},
      {[](auto& made, auto& mesh) { mesh.index = made.put(std::vector<std::uint32_t>{0, 1, 3}); },
       "index 3 is beyond its 3 vertices"},
      {[](auto& made, auto& mesh) { mesh.index = made.put(std::vector<std::uint32_t>{0, 1, 0xFFFFFFFF}); },
       "index 4294967295 is beyond its 3 vertices"},
      {[](auto& made, auto& mesh) { mesh.index = made.put(std::vector<std::uint32_t>{0, 1}); },
       "the index count 2 does not divide by 3"},
      {[](auto&, auto& mesh) { mesh.position.count = 8; }, "the position count 8 does not divide by 3"},
      {[](auto& made, auto& mesh) { mesh.normal = made.put(std::vector<float>(4)); },
       "the normal count 4 does not divide by 3"},
      {[](auto& made, auto& mesh) { mesh.normal = made.put(std::vector<float>(6)); },
       "2 normals for 3 vertices"},
      {[](auto& made, auto& mesh) { mesh.uv = made.put(std::vector<float>(5)); },
       "the uv count 5 does not divide by 2"},
      {[](auto& made, auto& mesh) { mesh.uv = made.put(std::vector<float>(8)); }, "4 uvs for 3 vertices"},
      {[](auto&, auto& mesh) {
         mesh.index.reset();
         mesh.vertexCount = 4;
       },
       "vertexCount 4 is beyond its 3 vertices"},
      {[](auto&, auto& mesh) {
         mesh.index.reset();
         mesh.vertexCount = -3;
       },
       "vertexCount -3 is beyond its 3 vertices"},
      {[](auto&, auto& mesh) {
         mesh.index.reset();
         mesh.vertexCount = 2;
       },
       "the vertex count 2 does not divide by 3"},
  };
  for (const auto& [change, text] : cases) {
    TestBundle made;
    // The record is changed apart, since what is put may move it.
    auto mesh = made.addMesh("m1", corner, {0, 1, 2});
    change(made, mesh);
    made.meshTable.records[0] = mesh;
    const auto bundle = made.decoded();
    for (const auto vertices : {Vertices::keep, Vertices::checkOnly}) {
      EXPECT_EQ(failureOf([&] { BundleSceneBuilder::build(bundle, vertices); }),
                std::string("[render] mesh build failed: mesh m1: ") + text);
    }
  }
  TestBundle made;
  made.addMesh("m1", corner, {0, 1, 2}).normal = {.byteOffset = 0, .count = 400};
  EXPECT_EQ(failureOf([&] { BundleSceneBuilder::build(made.decoded()); }),
            "[bakeBundle] meshes.bin range [0, +400·4) exceeds bin size 48");
}

TEST(BundleSceneBuilder, ReadsColours) {
  const Color white{1, 1, 1, 1};
  const std::pair<const char*, Color> cases[] = {{"#ff0000", {1, 0, 0, 1}},
                                                 {" ff0000 ", {1, 0, 0, 1}},
                                                 {"\xc2\xa0#FF0000\n", {1, 0, 0, 1}},
                                                 {"336699", {0.2F, 0.4F, 0.6F, 1}},
                                                 {"red", white},
                                                 {"#fff", white},
                                                 {"##ff0000", white},
                                                 {"#ff00zz", white},
                                                 {"", white}};
  for (const auto& [text, color] : cases) EXPECT_EQ(BundleSceneBuilder::color(text, 1), color) << text;
}

TEST(TransformReplay, HoldsTheLastPoseAndStandsAtTheOriginWithoutAny) {
  const AnimationTrack track{.targetId = "a", .perFrame = {{.px = 1}, {.px = 2}}};
  const std::pair<std::int64_t, double> cases[] = {
      {-5, 1}, {0, 1}, {1, 2}, {2, 2}, {std::numeric_limits<std::int64_t>::max(), 2}};
  for (const auto& [frame, x] : cases) EXPECT_EQ(TransformReplay::sample(track, frame).px, x);
  EXPECT_EQ(TransformReplay::sample(AnimationTrack{}, 3), TransformSample{});
  EXPECT_EQ(TransformReplay::sample(CameraTrack{}, 3), std::nullopt);
  EXPECT_EQ(TransformReplay::sample(CameraTrack{.perFrame = {{.fovDeg = 40, .focusDistanceM = 2}}}, 3)
                ->focusDistanceM,
            2);
}

TEST(ScenePoser, AppliesTheLocalMatrixFirst) {
  TestBundle made;
  auto moved = made.addMesh("m1", corner, {0, 1, 2});
  made.meshTable.records.clear();
  moved.localMatrix[12] = 1;  // one metre along x
  for (const char* shape : {"turning", "without track", "empty track"}) {
    moved.shapeId = shape;
    made.meshTable.records.push_back(moved);
  }
  const double half = std::numbers::sqrt2 / 2;
  // A quarter turn about y takes x to -z.
  made.animation.tracks = {{.targetId = "turning", .perFrame = {{}, {.py = 3, .qy = half, .qw = half}}},
                           {.targetId = "empty track"}};
  const auto bundle = made.decoded();
  auto scene = BundleSceneBuilder::build(bundle);
  const ScenePoser poser(bundle.animation, scene);
  poser.pose(scene, 7);
  const auto place = [&](std::size_t mesh) {
    const auto& matrix = scene.meshes[mesh].entity.transform;
    return std::array{matrix.at(0, 3), matrix.at(1, 3), matrix.at(2, 3), matrix.at(3, 3)};
  };
  const auto near = [](float value) { return ::testing::FloatNear(value, 1e-6F); };
  EXPECT_THAT(place(0), ::testing::ElementsAre(near(0), near(3), near(-1), near(1)));
  EXPECT_THAT(place(1), ::testing::ElementsAre(1, 0, 0, 1));
  EXPECT_THAT(place(2), ::testing::ElementsAre(1, 0, 0, 1));
  poser.pose(scene, 0);
  EXPECT_THAT(place(0), ::testing::ElementsAre(1, 0, 0, 1));
}

TEST(Shot, ChoosesTheFirstCameraThatIsNoReference) {
  BakeAnimationDoc animation;
  EXPECT_EQ(chooseCamera(animation, {}), nullptr);
  EXPECT_EQ(failureOf([&] { chooseCamera(animation, "a"); }), "there is no camera a; the bundle has none");
  animation.cameras = {{.cameraId = "r1", .isRef = true}, {.cameraId = "r2", .isRef = true}};
  EXPECT_EQ(chooseCamera(animation, {})->cameraId, "r1");
  animation.cameras.push_back({.cameraId = "c"});
  EXPECT_EQ(chooseCamera(animation, {})->cameraId, "c");
  EXPECT_EQ(chooseCamera(animation, "r2")->cameraId, "r2");
  EXPECT_EQ(failureOf([&] { chooseCamera(animation, "d"); }),
            "there is no camera d; the bundle has r1, r2, c");
}

TEST(LightPlacement, PrefersAMeshesIdThenItsShapeThenATrack) {
  TestBundle made;
  for (const char* id : {"a", "b", "c"}) made.addMesh(id, corner, {0, 1, 2});
  made.meshTable.records[0].shapeId = "b";
  made.meshTable.records[1].shapeId = "shape";
  made.animation.tracks = {{.targetId = "shape", .perFrame = {{}}},
                           {.targetId = "track", .perFrame = {{}}},
                           {.targetId = "empty"}};
  const auto bundle = made.decoded();
  const auto place = [&](const char* id) { return placeLight({.id = id, .name = "Key"}, bundle); };
  EXPECT_EQ(place("b")->mesh, 1U);
  EXPECT_EQ(place("shape")->mesh, 1U);
  EXPECT_EQ(place("track")->track, &bundle.animation.tracks[1]);
  EXPECT_FALSE(place("empty"));
  EXPECT_FALSE(place("nowhere"));
  EXPECT_EQ(unplacedLightNotice({.id = "l1", .name = "Key"}),
            "the light \"Key\" (l1) stands at no mesh and no track, and is left out");
}

}  // namespace
}  // namespace renderkit
