#include "renderkit/video/VideoEncoder.h"

#include "renderkit/Failure.h"
#include "renderkit/video/Disposal.h"

#include <fmt/format.h>

#include <algorithm>
#include <thread>
#include <utility>

extern "C" {
#include <libavutil/hwcontext.h>
}

namespace renderkit {
namespace {

void require(int status, const char* what) {
  if (status < 0) throw Failure(fmt::format("{}: {}", what, av::message(status)));
}

/// What every encoder is told of the video.
av::Codec describe(const AVCodec& codec, int width, int height, std::int32_t timescale,
                   AVPixelFormat format) {
  av::Codec context(avcodec_alloc_context3(&codec));
  if (!context) throw Failure(av::message(AVERROR(ENOMEM)));
  context->width = width;
  context->height = height;
  context->pix_fmt = format;
  context->time_base = {1000, timescale};
  context->framerate = {timescale, 1000};
  context->sample_aspect_ratio = {1, 1};
  // Set to match the conversion below; x265 says nothing of colour by itself.
  context->color_range = AVCOL_RANGE_MPEG;
  context->color_primaries = AVCOL_PRI_BT709;
  context->color_trc = AVCOL_TRC_BT709;
  context->colorspace = AVCOL_SPC_BT709;
  context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER | AV_CODEC_FLAG_BITEXACT;
  return context;
}

/// x265 with the settings of which the bytes are the same each time.
av::Codec openX265(int width, int height, std::int32_t timescale) {
  const auto* codec = avcodec_find_encoder_by_name("libx265");
  if (codec == nullptr) throw Failure("the FFmpeg libraries here have no libx265");
  auto context = describe(*codec, width, height, timescale, AV_PIX_FMT_YUV420P);
  av_opt_set(context->priv_data, "preset", "veryfast", 0);
  av_opt_set(context->priv_data, "crf", "20", 0);
  const auto workers = std::max(1U, std::thread::hardware_concurrency());
  const auto parameters = fmt::format("log-level=none:info=0:pools={}:frame-threads=1", workers);
  av_opt_set(context->priv_data, "x265-params", parameters.c_str(), 0);
  require(avcodec_open2(context.get(), codec, nullptr), "libx265");
  return context;
}

/// Gives a VAAPI encoder the surfaces that it reads from.
bool addSurfaces(AVCodecContext& context) {
  AVBufferRef* device = nullptr;
  if (av_hwdevice_ctx_create(&device, AV_HWDEVICE_TYPE_VAAPI, nullptr, nullptr, 0) < 0) return false;
  const av::Buffer owner(device);
  av::Buffer frames(av_hwframe_ctx_alloc(device));
  if (!frames) return false;
  auto& surfaces = *reinterpret_cast<AVHWFramesContext*>(frames->data);
  surfaces.format = AV_PIX_FMT_VAAPI;
  surfaces.sw_format = AV_PIX_FMT_NV12;
  surfaces.width = context.width;
  surfaces.height = context.height;
  surfaces.initial_pool_size = 20;
  if (av_hwframe_ctx_init(frames.get()) < 0) return false;
  context.hw_frames_ctx = frames.release();
  return true;
}

/// A hardware encoder that opens here, or null.
av::Codec openHardware(int width, int height, std::int32_t timescale) {
  for (const char* name : {"hevc_nvenc", "hevc_vaapi"}) {
    const auto* codec = avcodec_find_encoder_by_name(name);
    if (codec == nullptr) continue;
    const bool vaapi = std::string_view(name) == "hevc_vaapi";
    auto context = describe(*codec, width, height, timescale, vaapi ? AV_PIX_FMT_VAAPI : AV_PIX_FMT_YUV420P);
    // Constant quality, near what x265 gives at its own.
    if (vaapi) {
      if (!addSurfaces(*context)) continue;
      context->global_quality = 22;
    } else {
      av_opt_set(context->priv_data, "rc", "vbr", 0);
      av_opt_set(context->priv_data, "cq", "22", 0);
    }
    if (avcodec_open2(context.get(), codec, nullptr) >= 0) return context;
  }
  return nullptr;
}

av::Frame planes(int width, int height, AVPixelFormat format) {
  av::Frame frame(av_frame_alloc());
  if (!frame) throw Failure(av::message(AVERROR(ENOMEM)));
  frame->width = width;
  frame->height = height;
  frame->format = format;
  require(av_frame_get_buffer(frame.get(), 0), "a frame's planes");
  return frame;
}

av::Scaler scaler(int width, int height, AVPixelFormat format) {
  av::Scaler scaler(sws_getContext(width, height, AV_PIX_FMT_BGRA, width, height, format,
                                   SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INP, nullptr, nullptr,
                                   nullptr));
  if (!scaler) throw Failure(av::message(AVERROR(ENOMEM)));
  // From full range to limited, both with the matrix of BT.709.
  const auto* matrix = sws_getCoefficients(SWS_CS_ITU709);
  sws_setColorspaceDetails(scaler.get(), matrix, 1, matrix, 0, 0, 1 << 16, 1 << 16);
  return scaler;
}

}  // namespace

VideoEncoder::VideoEncoder(int width, int height, std::int32_t timescale, EncoderChoice choice)
    : packet_(av_packet_alloc()) {
  av::beQuiet();
  if (choice == EncoderChoice::automatic) codec_ = openHardware(width, height, timescale);
  if (!codec_) codec_ = openX265(width, height, timescale);
  const auto format = codec_->pix_fmt == AV_PIX_FMT_VAAPI ? AV_PIX_FMT_NV12 : codec_->pix_fmt;
  planes_ = planes(width, height, format);
  scaler_ = scaler(width, height, format);
}

VideoEncoder::~VideoEncoder() {
  // x265 finishes what it has begun before it lets go, which takes up to a second.
  if (!drained_) disposeLater([codec = std::shared_ptr<AVCodecContext>(std::move(codec_))] {});
}

void VideoEncoder::encode(const PixelBuffer& picture, std::int64_t time, const Sink& sink) {
  convert(picture);
  auto* frame = forEncoder(time);
  require(avcodec_send_frame(codec_.get(), frame), "the encoder");
  receive(sink);
}

void VideoEncoder::drain(const Sink& sink) {
  require(avcodec_send_frame(codec_.get(), nullptr), "the encoder");
  receive(sink);
  drained_ = true;
}

void VideoEncoder::convert(const PixelBuffer& picture) {
  // The encoder may still refer to the planes of the frame before.
  require(av_frame_make_writable(planes_.get()), "a frame's planes");
  const std::uint8_t* rows[] = {picture.row(0)};
  const int strides[] = {static_cast<int>(picture.bytesPerRow())};
  sws_scale(scaler_.get(), rows, strides, 0, picture.height(), planes_->data, planes_->linesize);
}

AVFrame* VideoEncoder::forEncoder(std::int64_t time) {
  auto* frame = planes_.get();
  if (codec_->hw_frames_ctx != nullptr) {
    onDevice_.reset(av_frame_alloc());
    require(onDevice_ ? av_hwframe_get_buffer(codec_->hw_frames_ctx, onDevice_.get(), 0) : AVERROR(ENOMEM),
            "a surface of the encoder");
    require(av_hwframe_transfer_data(onDevice_.get(), planes_.get(), 0), "a surface of the encoder");
    frame = onDevice_.get();
  }
  frame->pts = time;
  return frame;
}

void VideoEncoder::receive(const Sink& sink) {
  for (;;) {
    const auto status = avcodec_receive_packet(codec_.get(), packet_.get());
    if (status == AVERROR(EAGAIN) || status == AVERROR_EOF) return;
    require(status, "the encoder");
    sink(*packet_);
    av_packet_unref(packet_.get());
  }
}

}  // namespace renderkit

#if __has_feature(address_sanitizer)
// x265 and fontconfig keep some hundred bytes. The names are the sanitizer's own.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libx265.so\nleak:libfontconfig.so\n";
}
extern "C" const char* __lsan_default_options() {
  return "print_suppressions=0";
}
// NOLINTEND(bugprone-reserved-identifier)
#endif
