#pragma once

#include "renderkit/burnin/TextBlock.h"
#include "renderkit/picture/ImageDecoder.h"

#include <memory>
#include <string>
#include <vector>

struct _cairo_surface;

namespace renderkit {

/// A mark over the middle of the picture that lets the picture through: light with a dark rim.
class Watermark {
 public:
  /// Text, as large as fits into `width` and `height`, in pixels.
  Watermark(const TextMaker& texts, const std::string& text, double width, double height);
  /// An image, scaled to fit. Throws std::bad_alloc.
  Watermark(picture::DecodedImage image, double width, double height);

  /// With its middle at that place.
  void draw(Cairo* cairo, double x, double y) const;

 private:
  struct Release {
    void operator()(_cairo_surface* surface) const;
  };

  void drawText(Cairo* cairo) const;
  void drawImage(Cairo* cairo) const;

  double width_ = 0, height_ = 0, scale_ = 1, rim_ = 1;
  TextMaker::Layout layout_;
  std::vector<std::uint8_t> pixels_;
  std::unique_ptr<_cairo_surface, Release> image_;
};

}  // namespace renderkit
