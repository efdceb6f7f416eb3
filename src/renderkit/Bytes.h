#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

namespace renderkit {

/// A run of bytes that keeps alive what it lies in, so that a slice of an archive is
/// handed on without a copy. Copies are cheap and refer to the same bytes.
class Bytes {
 public:
  Bytes() = default;
  explicit Bytes(std::vector<std::uint8_t> bytes) {
    auto owned = std::make_shared<const std::vector<std::uint8_t>>(std::move(bytes));
    view_ = *owned;
    owner_ = std::move(owned);
  }
  explicit Bytes(std::string_view text) : Bytes(std::vector<std::uint8_t>(text.begin(), text.end())) {}

  /// `count` bytes from `offset`; both must lie within.
  Bytes slice(std::size_t offset, std::size_t count) const {
    Bytes part;
    part.owner_ = owner_;
    part.view_ = view_.subspan(offset, count);
    return part;
  }

  const std::uint8_t* data() const { return view_.data(); }
  std::size_t size() const { return view_.size(); }
  bool empty() const { return view_.empty(); }
  std::span<const std::uint8_t> span() const { return view_; }
  std::string_view text() const { return {reinterpret_cast<const char*>(view_.data()), view_.size()}; }

 private:
  std::shared_ptr<const void> owner_;
  std::span<const std::uint8_t> view_;
};

}  // namespace renderkit
