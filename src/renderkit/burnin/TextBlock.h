#pragma once

#include <memory>
#include <string>

// Of Cairo and Pango, whose headers only the sources see.
struct _cairo;
struct _PangoContext;
struct _PangoFontMap;
struct _PangoLayout;

namespace renderkit {

using Cairo = _cairo;

/// Makes text layouts that look the same everywhere the fonts are there: no hinting, no subpixels.
/// One thread at a time.
class TextMaker {
 public:
  struct Style {
    const char* font = "DejaVu Sans";
    /// Pixels.
    double size = 16;
    /// The widest line, in pixels; longer text is wrapped.
    double width = 0;
    /// Text beyond so many lines ends in an ellipsis.
    int lines = 2;
    bool centered = false;
  };

  struct Release {
    void operator()(void* object) const;
  };
  using Layout = std::unique_ptr<_PangoLayout, Release>;

  TextMaker();

  /// Any bytes are taken; what is no UTF-8 shows as replacement characters.
  Layout layout(const std::string& text, const Style& style) const;

 private:
  std::unique_ptr<_PangoFontMap, Release> fonts_;
  std::unique_ptr<_PangoContext, Release> context_;
};

/// Text on a dark plate, which any picture lets read.
class TextBlock {
 public:
  /// A block without text draws nothing and has no size.
  TextBlock() = default;
  TextBlock(TextMaker::Layout layout, double size);

  double width() const { return width_; }
  double height() const { return height_; }
  void draw(Cairo* cairo, double left, double top) const;

 private:
  TextMaker::Layout layout_;
  double padding_ = 0, inkLeft_ = 0, width_ = 0, height_ = 0;
};

}  // namespace renderkit
