#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace renderkit::testing {

/// What a finished clip holds, read back by FFmpeg's libraries.
struct Clip {
  int width = 0;
  int height = 0;
  std::int32_t timescale = 0;
  /// "hvc1".
  std::string tag;
  /// Range, primaries, transfer and matrix, as "tv bt709 bt709 bt709".
  std::string color;
  /// Each decoded frame's time, in ticks of the timescale.
  std::vector<std::int64_t> times;
  /// The duration of the track, in ticks.
  std::int64_t duration = 0;
  /// Each frame's luma and chroma at its middle: Y, Cb, Cr.
  std::vector<std::vector<int>> middles;
};

/// Decodes the whole clip; `useEditList` false takes the times as the samples alone have
/// them. Throws when it is no clip.
Clip readClip(const std::filesystem::path& file, bool useEditList = true);

}  // namespace renderkit::testing
