#include "renderkit/video/H265VideoWriter.h"

#include "renderkit/Failure.h"
#include "renderkit/video/EncodeError.h"
#include "renderkit/video/MovieFile.h"
#include "renderkit/video/VideoEncoder.h"
#include "renderkit/video/VideoLimits.h"

#include <fmt/format.h>

#include <cmath>
#include <condition_variable>
#include <deque>
#include <limits>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

namespace renderkit {
namespace {

/// Frames that wait for the encoder, beside the one that it works on.
constexpr std::size_t mostWaiting = 2;

void requireSide(const char* name, int pixels) {
  if (pixels < VideoLimits::smallestSide || pixels > VideoLimits::largestSide || pixels % 2 != 0) {
    throw EncodeError::writerSetupFailed(fmt::format("{} {} is not even and within {} to {}", name, pixels,
                                                     VideoLimits::smallestSide, VideoLimits::largestSide));
  }
}

av::Parameters parameters(const AVCodecContext& codec) {
  av::Parameters parameters(avcodec_parameters_alloc());
  if (!parameters || avcodec_parameters_from_context(parameters.get(), &codec) < 0) {
    throw Failure(av::message(AVERROR(ENOMEM)));
  }
  return parameters;
}

}  // namespace

/// The encoder, the file, and the thread between the caller and both.
class H265VideoWriter::Impl {
 public:
  Impl(std::filesystem::path path, int width, int height, std::int32_t timescale, const Options& options)
      : timescale(timescale), path_(std::move(path)), width_(width), height_(height) {
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
    try {
      encoder_.emplace(width, height, timescale, options.encoder);
      file_.emplace(path_, *parameters(encoder_->context()), timescale,
                    options.part ? options.part->text() : "");
    } catch (const Failure& failure) {
      throw EncodeError::writerSetupFailed(failure.text());
    }
    thread_ = std::jthread([this](const std::stop_token& stop) { run(stop); });
  }

  void append(PixelBuffer frame, std::int64_t index, std::stop_token stop) {
    if (frame.width() != width_ || frame.height() != height_) {
      throw EncodeError::appendFailed(index, fmt::format("the frame has {}x{} pixels, not {}x{}",
                                                         frame.width(), frame.height(), width_, height_));
    }
    std::unique_lock lock(mutex_);
    changed_.wait(lock, stop, [this] { return waiting_.size() < mostWaiting || failure_; });
    checkCancellation(stop);
    if (failure_) throw EncodeError::appendFailed(failedFrame_, *failure_);
    waiting_.emplace_back(std::move(frame), index);
    changed_.notify_all();
  }

  void finish(std::stop_token stop) {
    std::unique_lock lock(mutex_);
    ended_ = true;
    changed_.notify_all();
    changed_.wait(lock, stop, [this] { return done_; });
    if (!done_) throw CancelledFailure();
    if (failure_) throw EncodeError::writerFailed(*failure_);
  }

  const std::int32_t timescale;

 private:
  void run(const std::stop_token& stop) {
    std::optional<std::string> failure;
    std::int64_t at = 0;
    try {
      encodeAll(stop, at);
    } catch (const Failure& known) {
      failure = known.text();
    } catch (const std::exception& error) {
      failure = error.what();
    }
    const std::scoped_lock lock(mutex_);
    failure_ = failure;
    failedFrame_ = at;
    done_ = true;
    waiting_.clear();
    changed_.notify_all();
  }

  void encodeAll(const std::stop_token& stop, std::int64_t& at) {
    const auto sink = [&](AVPacket& packet) {
      // Draining the encoder takes as long as some dozen frames.
      checkCancellation(stop);
      file_->write(packet);
    };
    while (auto next = take(stop)) {
      at = next->second;
      encoder_->encode(next->first, at, sink);
    }
    if (stop.stop_requested()) return;
    encoder_->drain(sink);
    file_->finish();
  }

  /// The next frame; nothing at the end, or once a stop was requested.
  std::optional<std::pair<PixelBuffer, std::int64_t>> take(const std::stop_token& stop) {
    std::unique_lock lock(mutex_);
    if (!changed_.wait(lock, stop, [this] { return !waiting_.empty() || ended_; })) return std::nullopt;
    if (stop.stop_requested() || waiting_.empty()) return std::nullopt;
    auto next = std::move(waiting_.front());
    waiting_.pop_front();
    changed_.notify_all();
    return next;
  }

  std::filesystem::path path_;
  int width_;
  int height_;
  std::optional<VideoEncoder> encoder_;
  std::optional<MovieFile> file_;
  std::mutex mutex_;
  std::condition_variable_any changed_;
  std::deque<std::pair<PixelBuffer, std::int64_t>> waiting_;
  std::optional<std::string> failure_;
  std::int64_t failedFrame_ = 0;
  bool ended_ = false;
  bool done_ = false;
  /// Last, so that it is joined before anything that it uses goes.
  std::jthread thread_;
};

H265VideoWriter::H265VideoWriter(const std::filesystem::path& outputURL, int width, int height, double fps,
                                 const Options& options) {
  const auto ticks = timescale(fps);
  requireSide("width", width);
  requireSide("height", height);
  impl_ = std::make_unique<Impl>(outputURL, width, height, ticks, options);
}

H265VideoWriter::~H265VideoWriter() = default;

void H265VideoWriter::append(PixelBuffer frame, std::int64_t frameIndex, std::stop_token stop) {
  impl_->append(std::move(frame), frameIndex, std::move(stop));
}

void H265VideoWriter::finish(std::stop_token stop) {
  impl_->finish(std::move(stop));
}

std::int32_t H265VideoWriter::timescale() const {
  return impl_->timescale;
}

std::int32_t H265VideoWriter::timescale(double fps) {
  if (!(fps > 0) || !std::isfinite(fps)) {
    throw EncodeError::writerSetupFailed(fmt::format("fps must be positive, got {}", fps));
  }
  constexpr auto most = std::numeric_limits<std::int32_t>::max();
  const auto ticks = std::round(fps * 1000);
  if (ticks < 1 || ticks > most) {
    throw EncodeError::writerSetupFailed(
        fmt::format("fps {} gives the timescale {}, which is not within 1 to {}", fps, ticks, most));
  }
  return static_cast<std::int32_t>(ticks);
}

}  // namespace renderkit
