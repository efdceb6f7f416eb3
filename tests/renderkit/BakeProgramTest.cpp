#include "integration/AgentProcess.h"
#include "renderkit/BundleBuilder.h"
#include "renderkit/ClipReader.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/json/parse.hpp>

#include <csignal>
#include <cstdlib>

namespace renderkit {
namespace {

using ::testing::HasSubstr;
using testing::readClip, testing::TestBundle;
namespace json = boost::json;

class Bake : public ::testing::Test {
 protected:
  Bake() {
    folder.write("shot.zip", TestBundle().zip());
    folder.write("bad.zip", "");
  }
  vorlane::test::Finished bake(std::vector<std::string> arguments) const {
    for (auto& word : arguments) {
      if (word.ends_with(".zip") || word.ends_with(".png") || word.ends_with(".mp4"))
        word = folder.path(word);
    }
    return vorlane::test::runProgram("vorlane-bake", arguments, environment);
  }
  static std::vector<json::object> lines(const std::string& out) {
    std::vector<json::object> objects;
    std::istringstream in(out);
    for (std::string line; std::getline(in, line);) objects.push_back(json::parse(line).as_object());
    return objects;
  }
  vorlane::testing::TemporaryFolder folder;
  // Nothing of the sanitizers may stand on standard error.
  vorlane::test::EnvironmentMap environment{{"PATH", "/usr/bin:/bin"}, {"ASAN_OPTIONS", "symbolize=0"}};
  std::string out = folder.path("out");
};

TEST_F(Bake, RendersABundleAndPrintsOneLine) {
  const auto run = bake({"--plate", "--output", out, "shot.zip"});
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.error, "");
  const auto answer = lines(run.out).at(0);
  EXPECT_EQ(answer.at("bundle"), json::value(folder.path("shot.zip")));
  EXPECT_EQ(answer.at("output"), json::value(out + "/Show/Sc1/Show - Sc1.mp4"));
  EXPECT_EQ(answer.at("frames"), 4);
  EXPECT_TRUE(answer.at("seconds").is_double());
  EXPECT_EQ(readClip(out + "/Show/Sc1/Show - Sc1.mp4").times.size(), 4U);
}

TEST_F(Bake, TellsEachChangeOfStateAndGoesOnAfterAFailure) {
  const auto run = bake({"--json", "--plate", "--output=" + out, "bad.zip", "shot.zip"});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_EQ(run.error, "vorlane-bake: " + folder.path("bad.zip") +
                           ": [zip] not a ZIP archive (no end-of-central-directory)\n");
  std::string states;
  for (const auto& line : lines(run.out)) {
    if (line.contains("state") && line.at("bundle") == json::value(folder.path("shot.zip"))) {
      states += std::string(line.at("state").as_string()) +
                (line.contains("frame") ? json::serialize(line.at("frame")) : "") + " ";
    }
  }
  EXPECT_EQ(states, "queued running running0 running1 running2 running3 completed ");
  EXPECT_THAT(run.out, HasSubstr(R"("state": "failed", "message": "[zip] not a ZIP archive)"));
  EXPECT_THAT(run.out, HasSubstr(R"("progress": 0.25, "frame": 0, "frameCount": 4)"));
}

TEST_F(Bake, RefusesACommandLineWithOneLine) {
  const std::pair<std::vector<std::string>, const char*> cases[] = {
      {{}, "no bundle is named"},
      {{"--colour", "shot.zip"}, "unknown option --colour"},
      {{"--samples", "0", "shot.zip"}, "the option --samples takes a number from 1 to 4096, not \"0\""},
      {{"--ray-tracing=maybe", "shot.zip"}, "the option --ray-tracing takes on or off, not \"maybe\""},
      {{"--frames", "9-3", "shot.zip"}, "the option --frames takes two frames as A-B, not \"9-3\""},
      {{"--frame", "1", "shot.zip"}, "the options --frame and --png go together"},
      {{"--plate=yes", "shot.zip"}, "unknown option --plate=yes"},
      {{"--output"}, "the option --output needs a value"},
      {{"--inspect", "--join", "a.mp4", "b.mp4"}, "these options do not go together"},
      {{"--inspect", "--json", "shot.zip"}, "these options do not go together"},
      {{"--inspect", "shot.zip", "bad.zip"}, "--inspect and --frame take one bundle"}};
  for (const auto& [arguments, text] : cases) {
    const auto run = bake(arguments);
    EXPECT_EQ(run.exitCode, 2) << text;
    EXPECT_EQ(run.error, std::string("vorlane-bake: ") + text + "\n");
  }
}

TEST_F(Bake, GivesTwoForACameraOrFrameThatOneBundleDoesNotHave) {
  const auto shot = "vorlane-bake: " + folder.path("shot.zip") + ": ";
  auto run = bake({"--plate", "--output", out, "--camera", "x", "shot.zip"});
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_EQ(run.error, shot + "there is no camera x; the bundle has none\n");
  EXPECT_EQ(bake({"--plate", "--output", out, "--camera", "x", "shot.zip", "shot.zip"}).exitCode, 1);
  run = bake({"--plate", "--frame", "4", "--png", "a.png", "shot.zip"});
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_EQ(run.error, shot + "there is no frame 4; the bundle has 4, counted from 0\n");
  EXPECT_EQ(bake({"--plate", "--frame", "3", "--png", "a.png", "shot.zip"}).exitCode, 0);
  EXPECT_EQ(folder.read("a.png").substr(0, 4), "\x89PNG");
}

TEST_F(Bake, InspectsABundleAfterReadingEveryRange) {
  TestBundle bundle;
  bundle.addMesh("m1", {0, 0, 0, 1, 0, 0, 0, 1, 0}, {0, 1, 2}).shapeId = "lamp";
  bundle.animation.tracks = {{.targetId = "lamp", .perFrame = {{}, {}}}};
  bundle.animation.cameras = {{.cameraId = "a", .perFrame = {{.fovDeg = 40}}}};
  bundle.photometry.lights = {{.id = "lamp", .name = "Lamp"}, {.id = "l2", .name = "Lost"}};
  folder.write("rich.zip", bundle.zip());
  const auto run = bake({"--inspect", "rich.zip"});
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.error, "vorlane-bake: " + folder.path("rich.zip") +
                           ": the light \"Lost\" (l2) stands at no mesh and no track, and is left out\n");
  const auto answer = json::parse(run.out).as_object();
  std::string keys;
  for (const auto& [key, value] : answer) keys += std::string(key) + " ";
  EXPECT_EQ(keys, "manifest meshes tracks cameras lights textures ");
  EXPECT_EQ(answer.at("meshes").at(0).at("triangles"), 1);
  EXPECT_EQ(answer.at("tracks").at(0).at("meshes"), 1);
  EXPECT_EQ(answer.at("cameras").at(0).at("chosen"), json::value(true));
  EXPECT_EQ(answer.at("lights").at("lights").at(0).at("atMesh"), json::value("m1"));
  bundle.meshTable.records[0].position.byteOffset = 400;
  folder.write("rich.zip", bundle.zip());
  EXPECT_THAT(bake({"--inspect", "rich.zip"}).error,
              HasSubstr("[bakeBundle] meshes.bin range [400, +9·4) exceeds bin size 48"));
}

TEST_F(Bake, JoinsTheParts) {
  const auto parts = [&](const char* range) {
    EXPECT_EQ(bake({"--plate", "--output", out, "--frames", range, "shot.zip"}).exitCode, 0);
    return out + "/Show/Sc1/Show - Sc1." + range + ".mp4";
  };
  const auto first = parts("0-2"), last = parts("3-3");
  const auto run =
      vorlane::test::runProgram("vorlane-bake", {"--join", folder.path("all.mp4"), last, first}, environment);
  EXPECT_EQ(run.error, "");
  EXPECT_EQ(lines(run.out).at(0).at("frames"), 4);
  EXPECT_EQ(readClip(folder.path("all.mp4")).times, (std::vector<std::int64_t>{0, 1000, 2000, 3000}));
}

TEST_F(Bake, TakesTheDemoBundle) {
  const auto command = "python3 " VORLANE_SOURCE "/scripts/make-demo-bundle.py --size 64x36 --frames 3 " +
                       folder.path("demo.zip");
  ASSERT_EQ(std::system(command.c_str()), 0);
  const auto run = bake({"--inspect", "demo.zip"});
  EXPECT_EQ(run.error, "") << "every light is placed";
  EXPECT_EQ(json::parse(run.out).at("textures").as_array().size(), 2U);
  EXPECT_EQ(bake({"--plate", "--output", out, "demo.zip"}).exitCode, 0);
}

TEST_F(Bake, EndsWith130WhenInterrupted) {
  TestBundle bundle;
  bundle.manifest.width = bundle.manifest.height = 512;
  bundle.manifest.frameCount = 100'000;
  folder.write("long.zip", bundle.zip());
  vorlane::test::BackgroundProgram program(
      "vorlane-bake", {"--json", "--plate", "--output", out, folder.path("long.zip")}, environment);
  ASSERT_TRUE(
      vorlane::test::eventually([&] { return program.out().find("\"frame\": 3,") != std::string::npos; }));
  EXPECT_EQ(program.stop(SIGINT), 130);
  EXPECT_THAT(program.out(), HasSubstr("\"state\": \"cancelled\""));
}

}  // namespace
}  // namespace renderkit
