#include "renderkit/ClipReader.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/pixdesc.h>
}

#include <memory>
#include <stdexcept>

namespace renderkit::testing {
namespace {

struct Close {
  void operator()(AVFormatContext* format) const { avformat_close_input(&format); }
  void operator()(AVCodecContext* codec) const { avcodec_free_context(&codec); }
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};

void require(int status) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  if (status < 0)
    throw std::runtime_error(std::string("no clip: ") + av_make_error_string(text, sizeof text, status));
}

std::unique_ptr<AVFormatContext, Close> open(const std::filesystem::path& file, bool useEditList) {
  AVDictionary* options = nullptr;
  av_dict_set(&options, "ignore_editlist", useEditList ? "0" : "1", 0);
  AVFormatContext* format = nullptr;
  const auto status = avformat_open_input(&format, ("file:" + file.native()).c_str(), nullptr, &options);
  av_dict_free(&options);
  require(status);
  return std::unique_ptr<AVFormatContext, Close>(format);
}

void take(Clip& clip, const AVFrame& frame) {
  clip.times.push_back(frame.pts);
  const auto at = [&](int plane, int x, int y) {
    return int(frame.data[plane][y * frame.linesize[plane] + x]);
  };
  clip.middles.push_back({at(0, frame.width / 2, frame.height / 2), at(1, frame.width / 4, frame.height / 4),
                          at(2, frame.width / 4, frame.height / 4)});
}

}  // namespace

Clip readClip(const std::filesystem::path& file, bool useEditList) {
  av_log_set_level(AV_LOG_QUIET);
  const auto input = open(file, useEditList);
  require(input->nb_streams == 1 ? 0 : AVERROR_INVALIDDATA);
  auto* stream = input->streams[0];
  const auto& video = *stream->codecpar;
  char tag[AV_FOURCC_MAX_STRING_SIZE] = {};
  Clip clip{.width = video.width,
            .height = video.height,
            .timescale = stream->time_base.den,
            .tag = av_fourcc_make_string(tag, video.codec_tag),
            .duration = stream->duration};
  const std::unique_ptr<AVCodecContext, Close> codec(
      avcodec_alloc_context3(avcodec_find_decoder(video.codec_id)));
  require(avcodec_parameters_to_context(codec.get(), &video));
  require(avcodec_open2(codec.get(), nullptr, nullptr));
  const std::unique_ptr<AVPacket, Close> packet(av_packet_alloc());
  const std::unique_ptr<AVFrame, Close> frame(av_frame_alloc());
  for (bool ended = false; !ended;) {
    ended = av_read_frame(input.get(), packet.get()) < 0;
    require(avcodec_send_packet(codec.get(), ended ? nullptr : packet.get()));
    av_packet_unref(packet.get());
    while (avcodec_receive_frame(codec.get(), frame.get()) >= 0) take(clip, *frame);
  }
  for (const char* name :
       {av_color_range_name(codec->color_range), av_color_primaries_name(codec->color_primaries),
        av_color_transfer_name(codec->color_trc), av_color_space_name(codec->colorspace)}) {
    clip.color += (clip.color.empty() ? "" : " ") + std::string(name);
  }
  return clip;
}

}  // namespace renderkit::testing
