#include "renderkit/picture/ImageDecoder.h"

#include "renderkit/video/AV.h"

#include <cstring>
#include <new>
#include <string_view>
#include <vector>

namespace renderkit::picture {
namespace {

constexpr std::int64_t mostPixels = 64 << 20;
constexpr int longestSide = 16384;

AVCodecID codecOf(std::span<const std::uint8_t> file) {
  const std::string_view bytes(reinterpret_cast<const char*>(file.data()), file.size());
  if (bytes.starts_with("\x89PNG\r\n\x1a\n")) return AV_CODEC_ID_PNG;
  if (bytes.starts_with("\xff\xd8\xff")) return AV_CODEC_ID_MJPEG;
  if (bytes.starts_with("RIFF") && bytes.substr(0, 12).ends_with("WEBP")) return AV_CODEC_ID_WEBP;
  throw ImageError("it is neither PNG, JPEG nor WebP");
}

void require(int result) {
  if (result == AVERROR(ENOMEM)) throw std::bad_alloc();
  if (result < 0) throw ImageError(av::message(result));
}

av::Frame decode(std::span<const std::uint8_t> file) {
  av::beQuiet();
  const auto* decoder = avcodec_find_decoder(codecOf(file));
  if (decoder == nullptr) throw ImageError("this machine has no decoder for it");
  av::Codec codec(avcodec_alloc_context3(decoder));
  av::Packet packet(av_packet_alloc());
  av::Frame frame(av_frame_alloc());
  if (!codec || !packet || !frame) throw std::bad_alloc();
  codec->max_pixels = mostPixels;
  codec->thread_count = 1;
  require(avcodec_open2(codec.get(), decoder, nullptr));
  if (file.size() > INT_MAX - AV_INPUT_BUFFER_PADDING_SIZE) throw ImageError("it is too large");
  // Decoders read beyond the end, and want zeros there.
  require(av_new_packet(packet.get(), static_cast<int>(file.size())));
  std::memcpy(packet->data, file.data(), file.size());
  require(avcodec_send_packet(codec.get(), packet.get()));
  require(avcodec_send_packet(codec.get(), nullptr));
  require(avcodec_receive_frame(codec.get(), frame.get()));
  return frame;
}

}  // namespace

DecodedImage decodeImage(std::span<const std::uint8_t> file) {
  const auto frame = decode(file);
  const int width = frame->width, height = frame->height;
  if (width < 1 || height < 1 || width > longestSide || height > longestSide) {
    throw ImageError("its size is " + std::to_string(width) + " by " + std::to_string(height));
  }
  const int flags = SWS_BICUBIC | SWS_ACCURATE_RND | SWS_BITEXACT | SWS_FULL_CHR_H_INP | SWS_FULL_CHR_H_INT;
  const av::Scaler scaler(sws_getContext(width, height, static_cast<AVPixelFormat>(frame->format), width,
                                         height, AV_PIX_FMT_RGBA, flags, nullptr, nullptr, nullptr));
  if (!scaler) throw ImageError("its pixel format is not known");
  // The converter writes whole vectors, beyond the end of a row.
  const int stride = (width * 4 + 63) / 64 * 64;
  std::vector<std::uint8_t> padded(static_cast<std::size_t>(stride) * static_cast<std::size_t>(height) + 64);
  std::uint8_t* const planes[] = {padded.data(), nullptr, nullptr, nullptr};
  const int strides[] = {stride, 0, 0, 0};
  require(sws_scale(scaler.get(), frame->data, frame->linesize, 0, height, planes, strides));
  const auto row = static_cast<std::size_t>(width) * 4;
  std::vector<std::uint8_t> pixels(row * static_cast<std::size_t>(height));
  for (int y = 0; y < height; ++y) {
    std::memcpy(pixels.data() + row * static_cast<std::size_t>(y),
                padded.data() + static_cast<std::size_t>(stride) * static_cast<std::size_t>(y), row);
  }
  return {width, height, std::move(pixels)};
}

}  // namespace renderkit::picture
