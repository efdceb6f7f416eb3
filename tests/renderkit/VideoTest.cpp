#include "renderkit/BundleBuilder.h"
#include "renderkit/ClipReader.h"
#include "renderkit/video/EncodeError.h"
#include "renderkit/video/H265VideoWriter.h"
#include "renderkit/video/OutputPath.h"
#include "renderkit/video/PixelBufferFactory.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/resource.h>

#include <cmath>
#include <csignal>
#include <limits>
#include <thread>

namespace renderkit {
namespace {

using testing::failureOf, testing::readClip;
using vorlane::testing::TemporaryFolder;

TEST(OutputPath, KeepsTheFolderInsideTheRenderBase) {
  const std::pair<const char*, std::vector<std::string>> taken[] = {
      {"", {}},
      {"a//b/", {"a", "b"}},
      {"Show/Sc1/Take 2", {"Show", "Sc1", "Take 2"}},
      {"a~/...", {"a~", "..."}}};
  for (const auto& [path, components] : taken) EXPECT_EQ(OutputPath::safeComponents(path), components);
  using namespace std::string_view_literals;
  for (const auto path : {"a/../b"sv, "/etc"sv, "~/x"sv, "a/./b"sv, "a/~b"sv, "a/   /b"sv, "a/\xe2\x80\x83"sv,
                          "a\0b"sv, ".."sv}) {
    EXPECT_EQ(failureOf([&] { OutputPath::safeComponents(path); }),
              "[encode] manifest outputFolderPath escapes the render root: " +
                  std::string(path).substr(0, path.find('\0')));
  }
}

TEST(OutputPath, NamesTheFileAfterItsFolders) {
  const TemporaryFolder folder;
  EXPECT_EQ(OutputPath::outputURL(folder.path(), {"Show", "Sc1", "Take2"}, "mp4"),
            folder.path("Show/Sc1/Take2/Show - Sc1 - Take2.mp4"));
  EXPECT_TRUE(std::filesystem::is_directory(folder.path("Show/Sc1/Take2")));
  EXPECT_EQ(OutputPath::outputURL(folder.path(), {}, "mp4"), folder.path("render.mp4"));
  folder.write("file", "");
  EXPECT_EQ(failureOf([&] { OutputPath::outputURL(folder.path(), {"file", "x"}, "mp4"); }),
            folder.path("file/x") + " cannot be created: Not a directory");
}

TEST(PixelBufferFactory, FillsRowsAndLeavesWhatLiesBetween) {
  PixelBufferFactory factory(5, 3);
  auto buffer = factory.buffer();
  ASSERT_GT(buffer.bytesPerRow(), 20U);
  std::fill_n(buffer.row(0), 3 * buffer.bytesPerRow(), std::uint8_t{9});
  PixelBufferFactory::fill(buffer, 1.2, -0.1, 0.5);
  for (int y = 0; y < 3; ++y) {
    EXPECT_THAT(std::vector(buffer.row(y) + 16, buffer.row(y) + 22),
                ::testing::ElementsAre(127, 0, 255, 255, 9, 9));
  }
  PixelBufferFactory::fill(buffer, std::nan(""), 0.07, 1);
  EXPECT_THAT(std::vector(buffer.row(2), buffer.row(2) + 4), ::testing::ElementsAre(255, 17, 0, 255));
}

TEST(PixelBufferFactory, ReusesMemoryAndTellsWhenThereIsNone) {
  int given = 0;
  {
    PixelBufferFactory factory(16, 16, [&](std::size_t bytes) -> std::shared_ptr<std::uint8_t> {
      if (++given > 2) return nullptr;
      return {new std::uint8_t[bytes], std::default_delete<std::uint8_t[]>()};
    });
    for (int i = 0; i < 9; ++i) factory.solidFrame(0, 0, 0);
    EXPECT_EQ(given, 1);
    const auto first = factory.buffer(), second = factory.buffer();
    EXPECT_EQ(failureOf([&] { factory.buffer(); }), "[encode] CVPixelBuffer create failed (-6662)");
  }
  PixelBuffer nowhere(16, 16, 64, nullptr);
  EXPECT_EQ(failureOf([&] { PixelBufferFactory::fill(nowhere, 0, 0, 0); }),
            "[encode] CVPixelBuffer create failed (-6660)");
  EXPECT_EQ(failureOf([] { PixelBufferFactory(0, 16); }), "[encode] CVPixelBufferPool create failed (-6681)");
  EXPECT_EQ(failureOf([] { PixelBufferFactory(16, 20000); }),
            "[encode] CVPixelBufferPool create failed (-6681)");
}

/// Writes so many frames; frame i has a grey that moves with it.
void write(const std::filesystem::path& file, double fps, int frames, int width = 64, int height = 48) {
  H265VideoWriter writer(file, width, height, fps);
  PixelBufferFactory factory(width, height);
  for (int i = 0; i < frames; ++i) writer.append(factory.solidFrame(i % 8 / 8.0, 0.5, 0.25), i);
  writer.finish();
}

TEST(H265VideoWriter, GivesEveryFrameItsExactTimeAtAnyRate) {
  const TemporaryFolder folder;
  const auto file = folder.path("clip.mp4");
  const std::pair<double, int> rates[] = {{1, 1000},      {12.5, 12500}, {23.976, 23976}, {24, 24000},
                                          {29.97, 29970}, {30, 30000},   {47.952, 47952}, {59.94, 59940}};
  for (const auto& [fps, timescale] : rates) {
    // Fewer frames than the encoder looks ahead, as many, and more.
    for (const int frames : {1, 2, 17, 50}) {
      write(file, fps, frames);
      std::vector<std::int64_t> times;
      for (int i = 0; i < frames; ++i) times.push_back(1000 * i);
      for (const bool useEditList : {true, false}) {
        const auto clip = readClip(file, useEditList);
        EXPECT_EQ(clip.times, times) << fps << " fps, " << frames;
        EXPECT_EQ(clip.timescale, timescale);
        EXPECT_EQ(clip.duration, 1000 * frames);
      }
    }
  }
  const auto clip = readClip(file);
  EXPECT_EQ(clip.tag, "hvc1");
  EXPECT_EQ(clip.color, "tv bt709 bt709 bt709");
}

TEST(H265VideoWriter, KeepsFlatColoursWithinTwoLevels) {
  const TemporaryFolder folder;
  // Y, Cb and Cr of BT.709 in limited range, by the standard's own formula.
  const std::pair<std::array<double, 3>, std::vector<int>> colors[] = {
      {{1, 1, 1}, {235, 128, 128}},        {{0, 0, 0}, {16, 128, 128}}, {{1, 0, 0}, {63, 102, 240}},
      {{0, 1, 0}, {173, 42, 26}},          {{0, 0, 1}, {32, 240, 118}}, {{0.5, 0.5, 0.5}, {125, 128, 128}},
      {{0.07, 0.07, 0.08}, {31, 129, 128}}};
  H265VideoWriter writer(folder.path("clip.mp4"), 64, 64, 24);
  PixelBufferFactory factory(64, 64);
  for (int i = 0; const auto& [rgb, expected] : colors)
    writer.append(factory.solidFrame(rgb[0], rgb[1], rgb[2]), i++);
  writer.finish();
  const auto clip = readClip(folder.path("clip.mp4"));
  ASSERT_EQ(clip.middles.size(), std::size(colors));
  for (std::size_t i = 0; i < std::size(colors); ++i) {
    for (std::size_t plane = 0; plane < 3; ++plane) {
      EXPECT_NEAR(clip.middles[i][plane], colors[i].second[plane], 2) << "colour " << i << " plane " << plane;
    }
  }
}

TEST(H265VideoWriter, WritesTheSameBytesEachTimeOverWhatWasThere) {
  const TemporaryFolder folder;
  write(folder.path("a.mp4"), 24, 30);
  folder.write("b.mp4", std::string(1 << 20, 'x'));
  write(folder.path("b.mp4"), 24, 30);
  EXPECT_EQ(folder.read("a.mp4"), folder.read("b.mp4"));
}

TEST(H265VideoWriter, RefusesWhatCannotBeEncodedBeforeItTouchesTheFile) {
  const TemporaryFolder folder;
  folder.write("clip.mp4", "the old one");
  const std::string failed = "[encode] AVAssetWriter setup failed: ";
  const auto setup = [&](double fps, int width, int height) {
    return failureOf([&] { H265VideoWriter(folder.path("clip.mp4"), width, height, fps); });
  };
  EXPECT_EQ(setup(0, 64, 48), failed + "fps must be positive, got 0");
  EXPECT_EQ(setup(std::nan(""), 64, 48), failed + "fps must be positive, got nan");
  EXPECT_EQ(setup(std::numeric_limits<double>::infinity(), 64, 48), failed + "fps must be positive, got inf");
  EXPECT_EQ(setup(0.0004, 64, 48),
            failed + "fps 0.0004 gives the timescale 0, which is not within 1 to 2147483647");
  EXPECT_EQ(setup(3e6, 64, 48),
            failed + "fps 3000000 gives the timescale 3000000000, which is not within 1 to 2147483647");
  EXPECT_EQ(setup(24, 8, 48), failed + "width 8 is not even and within 16 to 16384");
  EXPECT_EQ(setup(24, 64, 20000), failed + "height 20000 is not even and within 16 to 16384");
  EXPECT_EQ(folder.read("clip.mp4"), "the old one");
  EXPECT_EQ(failureOf([&] { write(folder.path("none/clip.mp4"), 24, 1); }),
            failed + folder.path("none/clip.mp4") + ": No such file or directory");
}

TEST(H265VideoWriter, NamesTheFrameThatCouldNotBeTaken) {
  const TemporaryFolder folder;
  H265VideoWriter writer(folder.path("clip.mp4"), 64, 48, 24);
  PixelBufferFactory good(64, 48), wrong(32, 32);
  writer.append(good.solidFrame(0, 0, 0), 0);
  EXPECT_EQ(failureOf([&] { writer.append(wrong.solidFrame(0, 0, 0), 1); }),
            "[encode] append failed at frame 1: the frame has 32x32 pixels, not 64x48");
}

TEST(H265VideoWriter, TellsOfAFullDiskAtTheFrameOrAtTheEnd) {
  const TemporaryFolder folder;
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const auto withRoomFor = [&](rlim_t bytes, int frames) {
    const rlimit small{.rlim_cur = bytes, .rlim_max = before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    const auto text = failureOf([&] {
      H265VideoWriter writer(folder.path("clip.mp4"), 320, 240, 24);
      PixelBufferFactory factory(320, 240);
      std::uint32_t noise = 1;
      for (int i = 0; i < frames; ++i) {
        auto frame = factory.buffer();
        for (int y = 0; y < 240; ++y) {
          for (int x = 0; x < 1280; ++x)
            frame.row(y)[x] = static_cast<std::uint8_t>((noise = noise * 1664525 + 1013904223) >> 24);
        }
        writer.append(std::move(frame), i);
      }
      writer.finish();
    });
    setrlimit(RLIMIT_FSIZE, &before);
    return text;
  };
  EXPECT_THAT(withRoomFor(100'000, 60),
              ::testing::MatchesRegex("\\[encode\\] append failed at frame [0-9]+: File too large"));
  EXPECT_EQ(withRoomFor(100, 3), "[encode] AVAssetWriter failed: File too large");
  EXPECT_EQ(withRoomFor(before.rlim_cur, 3), "nothing was thrown");
}

TEST(H265VideoWriter, LeavesItsWaitsWhenCancelled) {
  const TemporaryFolder folder;
  H265VideoWriter writer(folder.path("clip.mp4"), 640, 480, 24);
  PixelBufferFactory factory(640, 480);
  std::stop_source stop;
  std::jthread later([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    stop.request_stop();
  });
  // The encoder is slower than this, so that soon every append waits.
  EXPECT_EQ(failureOf([&] {
              for (int i = 0; i < 100'000; ++i)
                writer.append(factory.solidFrame(0, i % 2, 0), i, stop.get_token());
            }),
            "The operation was cancelled.");
  EXPECT_EQ(failureOf([&] { writer.finish(stop.get_token()); }), "The operation was cancelled.");
}

}  // namespace
}  // namespace renderkit
