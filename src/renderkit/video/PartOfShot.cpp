#include "renderkit/video/PartOfShot.h"

#include <fmt/format.h>

#include <charconv>

namespace renderkit {
namespace {

/// Takes a word and the number behind it off the front.
bool take(std::string_view& text, std::string_view word, std::int64_t& number) {
  if (!text.starts_with(word)) return false;
  text.remove_prefix(word.size());
  const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (status != std::errc() || number < 0) return false;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return true;
}

}  // namespace

std::string PartOfShot::text() const {
  return fmt::format("frames {}-{} of {}", frames.first, frames.last, frameCount);
}

std::optional<PartOfShot> PartOfShot::parse(std::string_view text) {
  PartOfShot part;
  if (take(text, "frames ", part.frames.first) && take(text, "-", part.frames.last) &&
      take(text, " of ", part.frameCount) && text.empty()) {
    return part;
  }
  return std::nullopt;
}

}  // namespace renderkit
