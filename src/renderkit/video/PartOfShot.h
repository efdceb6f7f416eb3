#pragma once

#include "renderkit/shot/RenderOptions.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace renderkit {

/// What a part's file remembers of the shot that it belongs to, so that putting parts
/// together misses none at the end.
struct PartOfShot {
  FrameRange frames;
  /// Of the whole shot.
  std::int64_t frameCount = 0;
  bool operator==(const PartOfShot&) const = default;

  /// "frames 10-19 of 240".
  std::string text() const;
  /// Nothing for any other text.
  static std::optional<PartOfShot> parse(std::string_view text);
};

}  // namespace renderkit
