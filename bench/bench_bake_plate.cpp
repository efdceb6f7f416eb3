// The plate at 720p, from the bundle to the file, against ffmpeg's own program that encodes the same
// raw frames with the same settings. Frames per second, and CPU time a frame.
#include "bench/Measure.h"
#include "renderkit/Notices.h"
#include "renderkit/shot/ShotRenderer.h"
#include "renderkit/video/PixelBufferFactory.h"

#include <fmt/format.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

namespace renderkit {
namespace {

namespace fs = std::filesystem;
constexpr int width = 1280, height = 720;

double cpuSeconds(int who) {
  rusage usage{};
  ::getrusage(who, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void writeRawFrame(const fs::path& file) {
  const auto frame = PixelBufferFactory(width, height).solidFrame(0.07, 0.07, 0.08);
  std::ofstream out(file, std::ios::binary);
  for (int y = 0; y < height; ++y) out.write(reinterpret_cast<const char*>(frame.row(y)), 4 * width);
}

void renderPlate(const fs::path& folder, int frames) {
  BakeBundle bundle;
  bundle.manifest.fps = 24;
  bundle.manifest.width = width;
  bundle.manifest.height = height;
  bundle.manifest.frameCount = frames;
  Notices notices;
  RealityKitShotRenderer(RealityKitShotRenderer::Frames::plate)
      .render(bundle, {.outputBaseDirectory = folder}, [](const RenderProgress&) {}, notices, {});
}

std::string ffmpegCommand(const fs::path& folder, int frames) {
  const auto workers = std::max(1U, std::thread::hardware_concurrency());
  return fmt::format(
      "ffmpeg -nostdin -v error -y -f rawvideo -pix_fmt bgra -s {}x{} -r 24 -stream_loop -1 -i {}/frame.raw "
      "-frames:v {} -vf scale=in_range=full:out_range=tv:in_color_matrix=bt709:out_color_matrix=bt709:"
      "flags=bicubic+accurate_rnd+full_chroma_inp,format=yuv420p -c:v libx265 -preset veryfast -crf 20 "
      "-x265-params log-level=none:info=0:pools={}:frame-threads=1 -tag:v hvc1 "
      "-movflags +faststart+negative_cts_offsets {}/ffmpeg.mp4",
      width, height, folder.string(), frames, workers, folder.string());
}

int run(int frames) {
  char name[] = "/tmp/vorlane-bench-XXXXXX";
  if (::mkdtemp(name) == nullptr) return 1;
  const fs::path folder = name;
  writeRawFrame(folder / "frame.raw");
  const auto command = ffmpegCommand(folder, frames);
  constexpr int rounds = 5;
  const auto ours = cpuSeconds(RUSAGE_SELF), theirs = cpuSeconds(RUSAGE_CHILDREN);
  const auto pair = vorlane::bench::medians(
      rounds, [&] { renderPlate(folder, frames); },
      [&] {
        if (std::system(command.c_str()) != 0) std::abort();
      });
  const auto milliseconds = [&](double seconds) { return seconds * 1e3 / rounds / frames; };
  fmt::print("the plate at 720p: {:.1f} frames/s, ffmpeg {:.1f}; ratio {:.2f} (0.95 at least)\n",
             frames / pair.ours, frames / pair.floor, pair.floor / pair.ours);
  fmt::print("  CPU time a frame: {:.1f} ms, ffmpeg {:.1f} ms\n",
             milliseconds(cpuSeconds(RUSAGE_SELF) - ours),
             milliseconds(cpuSeconds(RUSAGE_CHILDREN) - theirs));
  fs::remove_all(folder);
  return 0;
}

}  // namespace
}  // namespace renderkit

int main(int count, char** words) {
  return renderkit::run(count > 1 ? std::atoi(words[1]) : 150);
}
