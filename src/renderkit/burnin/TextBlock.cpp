#include "renderkit/burnin/TextBlock.h"

#include <pango/pangocairo.h>

#include <algorithm>
#include <numbers>

#if __has_feature(address_sanitizer)
// Fontconfig keeps 288 bytes of its own for the life of the process, which count as a leak. Weak: a
// program that encodes too has the encoder's list, which holds this one as well.
extern "C" __attribute__((weak)) const char* __lsan_default_suppressions() {
  return "leak:libfontconfig.so";
}
#endif

namespace renderkit {
namespace {

/// More bytes than any line shows.
constexpr std::size_t longestText = 2000;

}  // namespace

void TextMaker::Release::operator()(void* object) const {
  g_object_unref(object);
}

TextMaker::TextMaker()
    : fonts_(pango_cairo_font_map_new()), context_(pango_font_map_create_context(fonts_.get())) {
  auto* options = cairo_font_options_create();
  cairo_font_options_set_antialias(options, CAIRO_ANTIALIAS_GRAY);
  cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_NONE);
  cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
  pango_cairo_context_set_font_options(context_.get(), options);
  cairo_font_options_destroy(options);
}

TextMaker::Layout TextMaker::layout(const std::string& text, const Style& style) const {
  Layout layout(pango_layout_new(context_.get()));
  char* valid = g_utf8_make_valid(text.data(), static_cast<gssize>(std::min(text.size(), longestText)));
  pango_layout_set_text(layout.get(), valid, -1);
  g_free(valid);
  auto* font = pango_font_description_from_string(style.font);
  pango_font_description_set_absolute_size(font, style.size * PANGO_SCALE);
  pango_layout_set_font_description(layout.get(), font);
  pango_font_description_free(font);
  pango_layout_set_width(layout.get(), static_cast<int>(std::max(style.width, 1.0) * PANGO_SCALE));
  pango_layout_set_wrap(layout.get(), PANGO_WRAP_WORD_CHAR);
  pango_layout_set_ellipsize(layout.get(), PANGO_ELLIPSIZE_END);
  pango_layout_set_height(layout.get(), -style.lines);
  pango_layout_set_alignment(layout.get(), style.centered ? PANGO_ALIGN_CENTER : PANGO_ALIGN_LEFT);
  return layout;
}

TextBlock::TextBlock(TextMaker::Layout layout, double size)
    : layout_(std::move(layout)), padding_(size * 0.4) {
  PangoRectangle logical;
  pango_layout_get_extents(layout_.get(), nullptr, &logical);
  inkLeft_ = static_cast<double>(logical.x) / PANGO_SCALE;
  width_ = static_cast<double>(logical.width) / PANGO_SCALE + 2 * padding_;
  height_ = static_cast<double>(logical.height) / PANGO_SCALE + padding_;
}

void TextBlock::draw(Cairo* cairo, double left, double top) const {
  if (!layout_) return;
  constexpr double quarter = std::numbers::pi / 2;
  const double right = left + width_, bottom = top + height_, r = padding_ / 2;
  cairo_new_sub_path(cairo);
  cairo_arc(cairo, right - r, top + r, r, -quarter, 0);
  cairo_arc(cairo, right - r, bottom - r, r, 0, quarter);
  cairo_arc(cairo, left + r, bottom - r, r, quarter, 2 * quarter);
  cairo_arc(cairo, left + r, top + r, r, 2 * quarter, 3 * quarter);
  cairo_close_path(cairo);
  cairo_set_source_rgba(cairo, 0, 0, 0, 0.6);
  cairo_fill(cairo);
  cairo_move_to(cairo, left + padding_ - inkLeft_, top + padding_ / 2);
  cairo_set_source_rgb(cairo, 1, 1, 1);
  pango_cairo_show_layout(cairo, layout_.get());
}

}  // namespace renderkit
