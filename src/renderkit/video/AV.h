#pragma once

// The FFmpeg libraries' objects with owners. For the sources of video/ alone.
extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

#include <filesystem>
#include <memory>
#include <string>

namespace renderkit::av {

struct Free {
  void operator()(AVCodecContext* codec) const { avcodec_free_context(&codec); }
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
  void operator()(AVBufferRef* buffer) const { av_buffer_unref(&buffer); }
  void operator()(AVCodecParameters* parameters) const { avcodec_parameters_free(&parameters); }
  void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};
using Codec = std::unique_ptr<AVCodecContext, Free>;
using Frame = std::unique_ptr<AVFrame, Free>;
using Packet = std::unique_ptr<AVPacket, Free>;
using Buffer = std::unique_ptr<AVBufferRef, Free>;
using Parameters = std::unique_ptr<AVCodecParameters, Free>;
using Scaler = std::unique_ptr<SwsContext, Free>;

/// An error code in words.
std::string message(int error);

/// The path as the libraries take it: none of its characters means a protocol.
std::string url(const std::filesystem::path& path);

/// Lets none of the libraries write on standard error. Any number of calls.
void beQuiet();

}  // namespace renderkit::av
