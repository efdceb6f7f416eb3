#pragma once

#include <cstdint>

namespace renderkit::VideoLimits {

/// Pixels. Encoders refuse less, and memory ends beyond.
inline constexpr std::int64_t smallestSide = 16;
inline constexpr std::int64_t largestSide = 16384;
inline constexpr std::int64_t mostFrames = 10'000'000;

}  // namespace renderkit::VideoLimits
