#include "renderkit/BundleBuilder.h"
#include "renderkit/ClipReader.h"
#include "renderkit/jobs/RenderJobManager.h"
#include "renderkit/shot/RenderError.h"
#include "renderkit/shot/ShotRenderer.h"
#include "renderkit/video/ClipJoiner.h"
#include "renderkit/video/PixelBufferFactory.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>

namespace renderkit {
namespace {

using testing::failureOf, testing::readClip, testing::TestBundle;
using vorlane::testing::TemporaryFolder;
using Frames = RealityKitShotRenderer::Frames;

struct Rendered {
  std::filesystem::path output;
  std::vector<RenderProgress> progress;
  std::vector<std::string> notices;
};

Rendered renderWith(ShotRenderer&& renderer, const TestBundle& bundle, const RenderOptions& options,
                    std::stop_token stop = {}) {
  Rendered rendered;
  Notices notices;
  rendered.output = renderer.render(
      bundle.decoded(), options,
      [&](const RenderProgress& progress) { rendered.progress.push_back(progress); }, notices,
      std::move(stop));
  rendered.notices = notices.take();
  return rendered;
}

Rendered renderPlate(const TestBundle& bundle, const RenderOptions& options) {
  return renderWith(RealityKitShotRenderer(Frames::plate), bundle, options);
}

/// A source that shows the frame's number as a grey, and does something first.
FrameSourceFactory countingSource(std::function<void(const FrameRequest&)> first = {}) {
  struct Source : FrameSource {
    explicit Source(std::function<void(const FrameRequest&)> work) : first(std::move(work)) {}
    void render(const FrameRequest& request, PixelBuffer& frame, std::stop_token) override {
      if (first) first(request);
      const auto grey = static_cast<double>(request.frameIndex) / 32;
      PixelBufferFactory::fill(frame, grey, grey, grey);
    }
    std::function<void(const FrameRequest&)> first;
  };
  return [first](const FrameSourceSetup&) { return std::make_unique<Source>(first); };
}

TEST(ShotRenderer, WritesTheWholeShotBelowItsFolder) {
  const TemporaryFolder folder;
  const auto rendered = renderPlate({}, {.outputBaseDirectory = folder.path()});
  EXPECT_EQ(rendered.output, folder.path("Show/Sc1/Show - Sc1.mp4"));
  EXPECT_EQ(rendered.progress, (std::vector<RenderProgress>{{0, 4}, {1, 4}, {2, 4}, {3, 4}}));
  EXPECT_THAT(rendered.notices, ::testing::IsEmpty());
  const auto clip = readClip(rendered.output);
  EXPECT_EQ(clip.times, (std::vector<std::int64_t>{0, 1000, 2000, 3000}));
  EXPECT_NEAR(clip.middles[3][0], 31, 1);
}

TEST(ShotRenderer, PosesTheSceneForEachFrame) {
  const TemporaryFolder folder;
  TestBundle bundle;
  bundle.addMesh("m", {0, 0, 0, 1, 0, 0, 0, 1, 0}, {0, 1, 2}).shapeId = "s";
  bundle.animation.tracks = {{.targetId = "s", .perFrame = {{.px = 1}, {.px = 2}, {.px = 4}}}};
  bundle.animation.cameras = {{.cameraId = "empty"},
                              {.cameraId = "a", .perFrame = {{.fovDeg = 30}, {.fovDeg = 40}}}};
  std::vector<std::array<double, 3>> seen;
  const auto record = [&](const FrameRequest& request) {
    seen.push_back({request.timeS, request.scene.meshes[0].entity.transform.at(0, 3),
                    request.camera ? request.camera->fovDeg : 0});
  };
  renderWith(RealityKitShotRenderer(countingSource(record)), bundle,
             {.outputBaseDirectory = folder.path(), .cameraId = "a"});
  EXPECT_THAT(seen, ::testing::ElementsAre(std::array{0.0, 1.0, 30.0}, std::array{1.0 / 24, 2.0, 40.0},
                                           std::array{2.0 / 24, 4.0, 40.0}, std::array{3.0 / 24, 4.0, 40.0}));
  seen.clear();
  renderWith(RealityKitShotRenderer(countingSource(record)), bundle, {.outputBaseDirectory = folder.path()});
  EXPECT_EQ(seen[0][2], 0) << "a camera without samples counts as none";
}

TEST(ShotRenderer, RefusesBeforeAnyFileIsTouched) {
  const TemporaryFolder folder;
  const std::string setup = "[encode] AVAssetWriter setup failed: ";
  const std::pair<std::function<void(TestBundle&)>, std::string> cases[] = {
      {[](auto& b) { b.manifest.outputFolderPath = "a/../b"; },
       "[encode] manifest outputFolderPath escapes the render root: a/../b"},
      {[](auto& b) { b.addMesh("m1", {0, 0, 0}, {0, 0, 1}); },
       "[render] mesh build failed: mesh m1: index 1 is beyond its 1 vertices"},
      {[](auto& b) { b.manifest.width = 15; }, setup + "width 15 is not within 16 to 16384"},
      {[](auto& b) { b.manifest.height = 1LL << 40; },
       setup + "height 1099511627776 is not within 16 to 16384"},
      {[](auto& b) { b.manifest.frameCount = 10'000'001; }, setup + "frameCount 10000001 is beyond 10000000"},
      {[](auto& b) { b.manifest.fps = 1e-5; },
       setup + "fps 1e-05 gives the timescale 0, which is not within 1 to 2147483647"}};
  for (const auto& [change, text] : cases) {
    TestBundle bundle;
    change(bundle);
    EXPECT_EQ(failureOf([&] { renderPlate(bundle, {.outputBaseDirectory = folder.path()}); }), text);
  }
  EXPECT_EQ(
      failureOf([&] { renderPlate({}, {.outputBaseDirectory = folder.path(), .frames = FrameRange{2, 4}}); }),
      "there is no frame 4; the bundle has 4, counted from 0");
  EXPECT_EQ(failureOf([&] { renderWith(MetalShotRenderer(), {}, {.outputBaseDirectory = folder.path()}); }),
            "[render] MetalShotRenderer is the RISKGATE escape hatch and is not implemented yet");
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST(ShotRenderer, MakesOddSizesEvenAndSaysSo) {
  const TemporaryFolder folder;
  TestBundle bundle;
  bundle.manifest.width = 65;
  const auto rendered = renderPlate(bundle, {.outputBaseDirectory = folder.path()});
  EXPECT_THAT(rendered.notices,
              ::testing::ElementsAre("a video cannot have the odd size 65x48; this one has 66x48"));
  EXPECT_EQ(readClip(rendered.output).width, 66);
}

TEST(ShotRenderer, StopsBetweenFramesAndWithAFailure) {
  const TemporaryFolder folder;
  TestBundle bundle;
  bundle.manifest.frameCount = 100;
  std::stop_source stop;
  int frames = 0;
  const auto until = [&](const std::function<void()>& then) {
    frames = 0;
    return RealityKitShotRenderer(countingSource([&frames, then](const FrameRequest& request) {
      ++frames;
      if (request.frameIndex == 2) then();
    }));
  };
  EXPECT_EQ(failureOf([&] {
              renderWith(until([&] { stop.request_stop(); }), bundle, {.outputBaseDirectory = folder.path()},
                         stop.get_token());
            }),
            "The operation was cancelled.");
  EXPECT_EQ(frames, 3);
  EXPECT_EQ(failureOf([&] {
              renderWith(until([] { throw Failure("out of light"); }), bundle,
                         {.outputBaseDirectory = folder.path()});
            }),
            "out of light");
  EXPECT_EQ(frames, 3);
  // What was begun stays.
  EXPECT_TRUE(std::filesystem::exists(folder.path("Show/Sc1/Show - Sc1.mp4")));
  EXPECT_EQ(failureOf([&] {
              renderWith(until([&] { std::filesystem::remove_all(folder.path("Show")); }), bundle,
                         {.outputBaseDirectory = folder.path()});
            }),
            "[encode] AVAssetWriter failed: No such file or directory");
  bundle.manifest.frameCount = 2;
  EXPECT_EQ(readClip(renderPlate(bundle, {.outputBaseDirectory = folder.path()}).output).times.size(), 2U);
}

class ClipJoiner : public ::testing::Test {
 protected:
  /// Renders these frames of a shot of 30 as a part.
  std::filesystem::path part(std::int64_t first, std::int64_t last, double fps = 23.976) const {
    TestBundle bundle;
    bundle.manifest.frameCount = 30;
    bundle.manifest.fps = fps;
    return renderWith(RealityKitShotRenderer(countingSource()), bundle,
                      {.outputBaseDirectory = folder.path(), .frames = FrameRange{first, last}})
        .output;
  }
  std::string failure(const std::vector<std::filesystem::path>& parts) const {
    return failureOf([&] { joinClips(folder.path("joined.mp4"), parts); });
  }
  TemporaryFolder folder;
};

TEST_F(ClipJoiner, PutsPartsTogetherExactly) {
  const auto a = part(0, 0), b = part(1, 2), c = part(3, 20), d = part(21, 29);
  EXPECT_EQ(b.filename(), "Show - Sc1.1-2.mp4");
  EXPECT_EQ(readClip(b).times, (std::vector<std::int64_t>{1000, 2000}));
  EXPECT_EQ(joinClips(folder.path("joined.mp4"), {d, b, a, c}), 30);
  for (const bool useEditList : {true, false}) {
    const auto clip = readClip(folder.path("joined.mp4"), useEditList);
    ASSERT_EQ(clip.times.size(), 30U);
    EXPECT_EQ(clip.timescale, 23976);
    EXPECT_EQ(clip.duration, 30000);
    for (int i = 0; i < 30; ++i) {
      EXPECT_EQ(clip.times[static_cast<std::size_t>(i)], 1000 * i);
      EXPECT_NEAR(clip.middles[static_cast<std::size_t>(i)][0], 16 + 219 * i / 32.0, 2.5);
    }
  }
}

TEST_F(ClipJoiner, NamesWhatDoesNotFit) {
  const auto a = part(0, 9), b = part(10, 19), c = part(20, 29), over = part(8, 12);
  const auto named = [](const char* text, const auto&... files) {
    return fmt::format(fmt::runtime(text), files.string()...);
  };
  EXPECT_EQ(failure({b, c}), named("[join] frames 0 to 9 are missing before {}", b));
  EXPECT_EQ(failure({c, a}), named("[join] frames 10 to 19 are missing between {} and {}", a, c));
  EXPECT_EQ(failure({a, b}), named("[join] frames 20 to 29 are missing after {}", b));
  EXPECT_EQ(failure({a, over, c}), named("[join] frames 8 to 9 are in both {} and {}", a, over));
  folder.write("text.mp4", "no clip");
  EXPECT_EQ(failure({folder.path("text.mp4")}),
            "[join] " + folder.path("text.mp4") + ": Invalid data found when processing input");
  EXPECT_EQ(failureOf([&] { joinClips(a, {a, b, c}); }),
            named("[join] {}: a part cannot be the output too", a));
  const auto otherRate = part(10, 29, 25);
  EXPECT_EQ(failure({a, otherRate}),
            named("[join] {}: it was encoded in another size, rate or way than {}", otherRate, a));
  EXPECT_FALSE(std::filesystem::exists(folder.path("joined.mp4")));
}

TEST(JobState, IsEqualByCaseAndPayload) {
  EXPECT_EQ(JobState::running(0.5), JobState::running(0.5));
  EXPECT_NE(JobState::running(0.5), JobState::running(0.25));
  EXPECT_NE(JobState::completed("/a"), JobState::completed("/b"));
  EXPECT_NE(JobState::failed("a"), JobState::failed("b"));
  EXPECT_NE(JobState::queued(), JobState::cancelled());
}

class Jobs : public ::testing::Test {
 protected:
  Jobs() {
    folder.write("good.zip", TestBundle().zip());
    folder.write("bad.zip", "");
  }
  std::unique_ptr<RenderJobManager> manager(FrameSourceFactory source) {
    return std::make_unique<RenderJobManager>(std::make_unique<RealityKitShotRenderer>(std::move(source)),
                                              folder.path("out"), JobOptions{},
                                              [this](const RenderJobManager::Change& change) {
                                                told.push_back(change.id + " " + change.state.name());
                                              });
  }
  TemporaryFolder folder;
  std::vector<std::string> told;
};

TEST_F(Jobs, RunInOrderAndAFailureLetsTheRestGoOn) {
  const auto jobs = manager(countingSource());
  const auto bad = jobs->submit(folder.path("bad.zip")), good = jobs->submit(folder.path("good.zip"));
  jobs->wait();
  EXPECT_EQ(jobs->status(bad), JobState::failed("[zip] not a ZIP archive (no end-of-central-directory)"));
  EXPECT_EQ(jobs->status(good), JobState::completed(folder.path("out/Show/Sc1/Show - Sc1.mp4")));
  EXPECT_EQ(jobs->status("9"), std::nullopt);
  EXPECT_FALSE(jobs->cancel(good));
  // How the second submit falls among the first job's steps is open.
  std::erase(told, "2 queued");
  EXPECT_THAT(told, ::testing::ElementsAre("1 queued", "1 running", "1 failed", "2 running", "2 running",
                                           "2 running", "2 running", "2 running", "2 completed"));
}

TEST_F(Jobs, AreCancelledWhileTheyRunAndWhileTheyWait) {
  std::promise<void> began, goOn;
  const auto jobs = manager(countingSource([&](const FrameRequest& request) {
    if (request.frameIndex != 1) return;
    began.set_value();
    goOn.get_future().wait();
  }));
  const auto running = jobs->submit(folder.path("good.zip")), waiting = jobs->submit(folder.path("good.zip"));
  began.get_future().wait();
  EXPECT_EQ(jobs->status(running), JobState::running(0.25));
  EXPECT_TRUE(jobs->cancel(waiting));
  EXPECT_EQ(jobs->status(waiting), JobState::cancelled());
  EXPECT_TRUE(jobs->cancel(running));
  goOn.set_value();
  jobs->wait();
  EXPECT_EQ(jobs->status(running), JobState::cancelled());
  // The next one runs, and the one that was taken from before it does not.
  jobs->submit(folder.path("bad.zip"));
  jobs->wait();
  EXPECT_THAT(told, ::testing::Contains("3 failed"));
  EXPECT_THAT(told, ::testing::Not(::testing::Contains("2 running")));
}

TEST_F(Jobs, SayWhenMemoryEnds) {
  const auto jobs = manager(countingSource([](const FrameRequest&) { throw std::bad_alloc(); }));
  const auto id = jobs->submit(folder.path("good.zip"));
  jobs->wait();
  EXPECT_EQ(jobs->status(id), JobState::failed("[render] out of memory"));
}

}  // namespace
}  // namespace renderkit
