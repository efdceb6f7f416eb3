#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace renderkit {

enum class EncoderChoice {
  /// The same bytes on every machine.
  x265,
  /// A hardware encoder when one opens, else x265.
  automatic,
};

/// A part of a shot's frames, counted from 0, both ends included.
struct FrameRange {
  std::int64_t first = 0;
  std::int64_t last = 0;
  bool operator==(const FrameRange&) const = default;
};

/// How a shot is rendered, apart from what its bundle says.
struct RenderOptions {
  /// Soft light, one bounce, depth of field and motion blur.
  bool rayTracing = false;
  std::filesystem::path outputBaseDirectory;
  /// The camera to look through; without it the first that is no reference, else the first.
  std::optional<std::string> cameraId;
  /// Samples a pixel; without it what the ray-tracing choice implies.
  std::optional<int> samples;
  EncoderChoice encoder = EncoderChoice::x265;
  /// Only these frames, into a file of their own.
  std::optional<FrameRange> frames;
  /// Threads that render a picture; 0 stands for one a processor.
  int threads = 0;
};

struct RenderProgress {
  std::int64_t frameIndex = 0;
  std::int64_t frameCount = 0;
  bool operator==(const RenderProgress&) const = default;
};

}  // namespace renderkit
