#pragma once

#include "renderkit/shot/RenderOptions.h"
#include "renderkit/video/AV.h"
#include "renderkit/video/PixelBuffer.h"

#include <cstdint>
#include <functional>

namespace renderkit {

/// An HEVC encoder and the conversion before it: pictures in, packets out. Used by one
/// thread at a time.
class VideoEncoder {
 public:
  /// Gets each packet in the order of decoding, with times in {1000, timescale}; may throw.
  using Sink = std::function<void(AVPacket& packet)>;

  /// Opens the first encoder of the choice that works here. Throws a Failure with the
  /// libraries' own words.
  VideoEncoder(int width, int height, std::int32_t timescale, EncoderChoice choice);
  ~VideoEncoder();
  VideoEncoder(const VideoEncoder&) = delete;
  VideoEncoder& operator=(const VideoEncoder&) = delete;

  /// Encodes one picture as the frame of that time. Throws a Failure.
  void encode(const PixelBuffer& picture, std::int64_t time, const Sink& sink);
  /// Hands out what the encoder still holds.
  void drain(const Sink& sink);

  const AVCodecContext& context() const { return *codec_; }

 private:
  void convert(const PixelBuffer& picture);
  /// The frame as the encoder takes it: in memory, or uploaded to its device.
  AVFrame* forEncoder(std::int64_t time);
  void receive(const Sink& sink);

  av::Codec codec_;
  av::Scaler scaler_;
  av::Frame planes_;
  av::Frame onDevice_;
  av::Packet packet_;
  bool drained_ = false;
};

}  // namespace renderkit
