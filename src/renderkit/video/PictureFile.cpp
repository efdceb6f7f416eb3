#include "renderkit/video/PictureFile.h"

#include "renderkit/Failure.h"
#include "renderkit/video/AV.h"

#include <cerrno>
#include <cstdio>
#include <memory>
#include <system_error>

namespace renderkit {
namespace {

void require(int status) {
  if (status < 0) throw Failure("PNG: " + av::message(status));
}

av::Frame rgbFrame(const PixelBuffer& picture) {
  av::Frame frame(av_frame_alloc());
  require(frame ? 0 : AVERROR(ENOMEM));
  frame->width = picture.width();
  frame->height = picture.height();
  frame->format = AV_PIX_FMT_RGB24;
  require(av_frame_get_buffer(frame.get(), 0));
  for (int y = 0; y < picture.height(); ++y) {
    const auto* from = picture.row(y);
    auto* to = frame->data[0] + static_cast<std::ptrdiff_t>(y) * frame->linesize[0];
    for (int x = 0; x < picture.width(); ++x, from += 4, to += 3) {
      to[0] = from[2];
      to[1] = from[1];
      to[2] = from[0];
    }
  }
  return frame;
}

}  // namespace

void writePNG(const std::filesystem::path& file, const PixelBuffer& picture) {
  av::beQuiet();
  const auto* codec = avcodec_find_encoder(AV_CODEC_ID_PNG);
  require(codec == nullptr ? AVERROR_ENCODER_NOT_FOUND : 0);
  const av::Codec context(avcodec_alloc_context3(codec));
  require(context ? 0 : AVERROR(ENOMEM));
  context->width = picture.width();
  context->height = picture.height();
  context->pix_fmt = AV_PIX_FMT_RGB24;
  context->time_base = {1, 1};
  require(avcodec_open2(context.get(), codec, nullptr));
  const auto frame = rgbFrame(picture);
  const av::Packet packet(av_packet_alloc());
  require(packet ? 0 : AVERROR(ENOMEM));
  require(avcodec_send_frame(context.get(), frame.get()));
  require(avcodec_send_frame(context.get(), nullptr));
  require(avcodec_receive_packet(context.get(), packet.get()));

  const auto fail = [&] {
    throw Failure(file.string() + " cannot be written: " + std::generic_category().message(errno));
  };
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> out(std::fopen(file.c_str(), "wb"), std::fclose);
  if (!out) fail();
  const auto size = static_cast<std::size_t>(packet->size);
  if (std::fwrite(packet->data, 1, size, out.get()) != size || std::fclose(out.release()) != 0) fail();
}

}  // namespace renderkit
