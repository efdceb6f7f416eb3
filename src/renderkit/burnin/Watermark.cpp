#include "renderkit/burnin/Watermark.h"

#include <pango/pangocairo.h>

#include <algorithm>
#include <new>
#include <utility>

namespace renderkit {

void Watermark::Release::operator()(_cairo_surface* surface) const {
  cairo_surface_destroy(surface);
}

Watermark::Watermark(const TextMaker& texts, const std::string& text, double width, double height) {
  double size = height;
  PangoRectangle logical;
  // Once to learn how wide it is, once as wide as fits; what is far too long ends in an ellipsis.
  for (int turn = 0; turn < 2; ++turn) {
    layout_ = texts.layout(
        text, {.font = "DejaVu Sans Bold", .size = size, .width = turn == 0 ? 1e5 : width, .lines = 1});
    pango_layout_get_extents(layout_.get(), nullptr, &logical);
    const double wide = static_cast<double>(logical.width) / PANGO_SCALE;
    if (turn == 0) size *= std::clamp(0.98 * width / std::max(wide, 1.0), 0.15, 1.0);
  }
  width_ = static_cast<double>(logical.width) / PANGO_SCALE;
  height_ = static_cast<double>(logical.height) / PANGO_SCALE;
  rim_ = std::max(1.0, size / 24);
}

Watermark::Watermark(picture::DecodedImage image, double width, double height)
    : pixels_(std::move(image.pixels)) {
  // Blue, green, red and alpha, the colours times alpha.
  for (std::size_t i = 0; i < pixels_.size(); i += 4) {
    const unsigned alpha = pixels_[i + 3];
    std::swap(pixels_[i], pixels_[i + 2]);
    for (std::size_t c = i; c < i + 3; ++c)
      pixels_[c] = static_cast<std::uint8_t>((pixels_[c] * alpha + 127) / 255);
  }
  scale_ = std::min(width / image.width, height / image.height);
  width_ = image.width * scale_;
  height_ = image.height * scale_;
  rim_ = std::max(1.0, height / 100);
  image_.reset(cairo_image_surface_create_for_data(pixels_.data(), CAIRO_FORMAT_ARGB32, image.width,
                                                   image.height, image.width * 4));
  if (cairo_surface_status(image_.get()) != CAIRO_STATUS_SUCCESS) throw std::bad_alloc();
}

void Watermark::draw(Cairo* cairo, double x, double y) const {
  cairo_save(cairo);
  cairo_translate(cairo, x - width_ / 2, y - height_ / 2);
  image_ ? drawImage(cairo) : drawText(cairo);
  cairo_restore(cairo);
}

void Watermark::drawText(Cairo* cairo) const {
  pango_cairo_layout_path(cairo, layout_.get());
  cairo_set_line_width(cairo, 2 * rim_);
  cairo_set_line_join(cairo, CAIRO_LINE_JOIN_ROUND);
  cairo_set_source_rgba(cairo, 0, 0, 0, 0.3);
  cairo_stroke_preserve(cairo);
  cairo_set_source_rgba(cairo, 1, 1, 1, 0.4);
  cairo_fill(cairo);
}

void Watermark::drawImage(Cairo* cairo) const {
  const auto place = [&](double x, double y) {
    cairo_translate(cairo, x, y);
    cairo_scale(cairo, scale_, scale_);
  };
  const std::pair<double, double> rim[] = {{-rim_, 0}, {rim_, 0}, {0, -rim_}, {0, rim_}};
  for (const auto& [x, y] : rim) {
    cairo_save(cairo);
    place(x, y);
    cairo_set_source_rgba(cairo, 0, 0, 0, 0.15);
    cairo_mask_surface(cairo, image_.get(), 0, 0);
    cairo_restore(cairo);
  }
  place(0, 0);
  cairo_set_source_surface(cairo, image_.get(), 0, 0);
  cairo_paint_with_alpha(cairo, 0.6);
}

}  // namespace renderkit
