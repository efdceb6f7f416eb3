#include "renderkit/burnin/BurnIns.h"

#include "renderkit/Failure.h"
#include "renderkit/burnin/TextBlock.h"
#include "renderkit/burnin/Watermark.h"

#include <cairo.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace renderkit {
namespace {

/// On each side, of the picture's width and height.
constexpr double margin = 0.05;

std::string slateText(const BakeBundleSlates& slates) {
  return fmt::format("{}\nScene {}   Setup {}   Shot {}", slates.project, slates.scene, slates.setup,
                     slates.shot);
}

/// Two lines: how the camera is set, and where in the shot this is.
std::string settingsText(const BakeBundle& bundle, const FrameFacts& facts) {
  const auto& e = bundle.photometry.exposure;
  std::string text = facts.cameraId.empty() ? "NO CAMERA" : "CAM " + facts.cameraId;
  if (facts.camera) {
    text += fmt::format("  VFOV {:.1f}°", facts.camera->fovDeg);
    text += facts.camera->focusDistanceM ? fmt::format("  FOCUS {:.2f} m", *facts.camera->focusDistanceM)
                                         : std::string("  FOCUS –");
  }
  text += fmt::format("  T{:.3g}  ISO {:.6g}  SHUTTER {:.4g}°  {:.6g} fps", e.tStop, e.iso, e.shutterAngleDeg,
                      bundle.manifest.fps);
  return text + fmt::format("\nFRAME {:04}  TC {}", facts.frameIndex,
                            timecode(facts.frameIndex, bundle.manifest.fps));
}

struct DestroyContext {
  void operator()(cairo_t* cairo) const { cairo_destroy(cairo); }
};
struct DestroySurface {
  void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};

}  // namespace

std::string timecode(std::int64_t frameIndex, double fps) {
  const auto rate = static_cast<std::int64_t>(std::clamp(std::round(fps), 1.0, 1e6));
  const auto seconds = frameIndex / rate;
  return fmt::format("{:02}:{:02}:{:02}:{:02}", seconds / 3600, seconds / 60 % 60, seconds % 60,
                     frameIndex % rate);
}

/// Everything that stays the same from frame to frame is laid out once.
struct BurnIns::Parts {
  Parts(const BakeBundle& shot, int w, int h)
      : bundle(shot),
        width(w),
        height(h),
        left(w * margin),
        top(h * margin),
        safeWidth(w - 2 * left),
        safeHeight(h - 2 * top),
        size(h / 40.0) {}

  void layOut(Notices& notices);
  void addWatermark(const BurnInConfig& wanted, Notices& notices);
  TextBlock block(const std::string& text, double textSize, double share, bool centered, int lines,
                  const char* font = "DejaVu Sans") const;
  void draw(Cairo* cairo, const FrameFacts& facts) const;
  bool isEmpty() const;

  const BakeBundle& bundle;
  const int width, height;
  const double left, top, safeWidth, safeHeight;
  /// Of plain text, in pixels.
  const double size;
  TextMaker texts;
  TextBlock title, slate, legal;
  std::optional<Watermark> watermark;
};

TextBlock BurnIns::Parts::block(const std::string& text, double textSize, double share, bool centered,
                                int lines, const char* font) const {
  if (text.empty()) return {};
  const double inner = safeWidth * share - 0.8 * textSize;
  return TextBlock(
      texts.layout(text,
                   {.font = font, .size = textSize, .width = inner, .lines = lines, .centered = centered}),
      textSize);
}

void BurnIns::Parts::layOut(Notices& notices) {
  const auto& wanted = bundle.manifest.burnIn;
  // Slate and title stand side by side at the top.
  if (wanted.slate) slate = block(slateText(bundle.manifest.slates), size, 0.33, false, 4);
  if (wanted.title) {
    title = block(wanted.titleText.value_or(bundle.manifest.slates.project), 1.8 * size, 0.32, true, 2,
                  "DejaVu Sans Bold");
  }
  if (wanted.legal) legal = block(wanted.legalText.value_or(""), 0.8 * size, 1, true, 2);
  if (wanted.watermark) addWatermark(wanted, notices);
}

void BurnIns::Parts::addWatermark(const BurnInConfig& wanted, Notices& notices) {
  const auto text = wanted.watermarkLogo.value_or(bundle.manifest.slates.project);
  const auto image = bundle.textures.find(text);
  if (wanted.watermarkLogo && image != bundle.textures.end()) {
    try {
      watermark.emplace(picture::decodeImage(image->second.span()), 0.4 * safeWidth, 0.35 * safeHeight);
      return;
    } catch (const picture::ImageError& error) {
      notices.add("the watermark \"" + text + "\" cannot be used (" + error.text() +
                  "); its name stands in for it");
    }
  }
  if (!text.empty()) watermark.emplace(texts, text, 0.8 * safeWidth, 0.18 * safeHeight);
}

bool BurnIns::Parts::isEmpty() const {
  const auto& wanted = bundle.manifest.burnIn;
  return !wanted.title && !wanted.slate && !wanted.settings && !wanted.legal && !wanted.watermark;
}

void BurnIns::Parts::draw(Cairo* cairo, const FrameFacts& facts) const {
  if (watermark) watermark->draw(cairo, width / 2.0, height / 2.0);
  slate.draw(cairo, left, top);
  title.draw(cairo, (width - title.width()) / 2, top);
  double bottom = top + safeHeight - legal.height();
  legal.draw(cairo, (width - legal.width()) / 2, bottom);
  if (!bundle.manifest.burnIn.settings) return;
  if (legal.height() > 0) bottom -= 0.4 * size;
  const auto settings = block(settingsText(bundle, facts), size, 1, false, 6, "DejaVu Sans Mono");
  settings.draw(cairo, left, bottom - settings.height());
}

BurnIns::BurnIns(const BakeBundle& bundle, int width, int height, Notices& notices)
    : parts_(std::make_unique<Parts>(bundle, width, height)) {
  parts_->layOut(notices);
}

BurnIns::~BurnIns() = default;

void BurnIns::draw(PixelBuffer& picture, const FrameFacts& facts) const {
  if (parts_->isEmpty()) return;
  const std::unique_ptr<cairo_surface_t, DestroySurface> surface(
      cairo_image_surface_create_for_data(picture.row(0), CAIRO_FORMAT_RGB24, picture.width(),
                                          picture.height(), static_cast<int>(picture.bytesPerRow())));
  const std::unique_ptr<cairo_t, DestroyContext> cairo(cairo_create(surface.get()));
  parts_->draw(cairo.get(), facts);
  // Cairo may hold back what it drew until it is told that somebody will read it.
  cairo_surface_flush(surface.get());
  if (cairo_status(cairo.get()) != CAIRO_STATUS_SUCCESS) {
    throw Failure(std::string("[render] burn-ins failed: ") +
                  cairo_status_to_string(cairo_status(cairo.get())));
  }
  // It leaves the fourth byte of a pixel to chance.
  for (int y = 0; y < picture.height(); ++y) {
    auto* row = picture.row(y);
    for (int x = 0; x < picture.width(); ++x) row[4 * x + 3] = 255;
  }
}

}  // namespace renderkit
