#pragma once

#include "renderkit/shot/RenderOptions.h"
#include "renderkit/video/PartOfShot.h"
#include "renderkit/video/PixelBuffer.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <stop_token>

namespace renderkit {

/// Turns frames into an MP4 file with HEVC video. It writes at the output path itself: what
/// was there goes when the writer is made, and a writer that is let go unfinished leaves
/// what it has written. Driven by one thread at a time; a thread of its own encodes, so
/// that the next picture can be made meanwhile.
class H265VideoWriter {
 public:
  struct Options {
    EncoderChoice encoder = EncoderChoice::x265;
    /// Remembered in the file of a part of a longer shot.
    std::optional<PartOfShot> part;
  };

  /// Throws EncodeError::writerSetupFailed for a rate or size that cannot be encoded, or an
  /// encoder or file that does not open. Sizes are even.
  H265VideoWriter(const std::filesystem::path& outputURL, int width, int height, double fps,
                  const Options& options);
  H265VideoWriter(const std::filesystem::path& outputURL, int width, int height, double fps)
      : H265VideoWriter(outputURL, width, height, fps, Options()) {}
  ~H265VideoWriter();
  H265VideoWriter(const H265VideoWriter&) = delete;
  H265VideoWriter& operator=(const H265VideoWriter&) = delete;

  /// Waits until the encoder takes another frame, and hands it over; the frame has the time
  /// frameIndex times 1000 in the file's timescale. Throws CancelledFailure out of the wait,
  /// and EncodeError::appendFailed, which names the frame that could not be encoded.
  void append(PixelBuffer frame, std::int64_t frameIndex, std::stop_token stop = {});

  /// Encodes what is left and completes the file; nothing may be appended after it. Throws
  /// CancelledFailure, EncodeError::writerFailed.
  void finish(std::stop_token stop = {});

  /// Ticks a second of the file's times: fps times 1000, rounded.
  std::int32_t timescale() const;

  /// The timescale of a rate. Throws EncodeError::writerSetupFailed for one that has none.
  static std::int32_t timescale(double fps);

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace renderkit
