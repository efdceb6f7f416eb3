#include "renderkit/PictureStage.h"

#include "renderkit/shot/Shot.h"
#include "renderkit/video/PixelBufferFactory.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libswscale/swscale.h>
}

#include <cmath>
#include <cstring>
#include <memory>
#include <numbers>
#include <stdexcept>

namespace renderkit::test {

PictureStage::PictureStage() {
  bundle.manifest = {
      .slates = {"Harbour", "12", "A", "3"}, .fps = 24, .width = 64, .height = 64, .frameCount = 1};
  bundle.photometry.exposure = {.iso = 800, .tStop = 2.8, .shutterAngleDeg = 180, .fps = 24};
  const double fov = 2 * std::atan(0.1) * 180 / std::numbers::pi;
  bundle.animation.cameras = {{.cameraId = "A", .perFrame = {{.pose = {.pz = 10}, .fovDeg = fov}}}};
}

MeshBufferRange PictureStage::append(const void* data, std::size_t elements) {
  const auto offset = bin_.size();
  bin_.resize(offset + 4 * elements);
  if (elements > 0) std::memcpy(bin_.data() + offset, data, 4 * elements);
  return {static_cast<std::int64_t>(offset), static_cast<std::int64_t>(elements)};
}

MeshRecord& PictureStage::mesh(const std::string& id, const std::vector<float>& positions,
                               const std::vector<std::uint32_t>& indices, const std::vector<float>& uvs) {
  MeshRecord record{.id = id, .localMatrix = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}};
  record.material.colorHex = "#ffffff";
  record.vertexCount = static_cast<std::int64_t>(positions.size() / 3);
  record.position = append(positions.data(), positions.size());
  if (!uvs.empty()) record.uv = append(uvs.data(), uvs.size());
  if (!indices.empty()) record.index = append(indices.data(), indices.size());
  return bundle.meshTable.records.emplace_back(record);
}

MeshRecord& PictureStage::quad(const std::string& id, const std::vector<Point>& corners,
                               const std::string& colorHex) {
  std::vector<float> positions;
  for (const auto& corner : corners) positions.insert(positions.end(), corner.begin(), corner.end());
  auto& record = mesh(id, positions, {0, 1, 2, 0, 2, 3}, {0, 0, 1, 0, 1, 1, 0, 1});
  record.material.colorHex = colorHex;
  return record;
}

MeshRecord& PictureStage::card(const std::string& id, float x, float y, float z, float width, float height,
                               const std::string& colorHex) {
  const float l = x - width / 2, r = x + width / 2, b = y - height / 2, t = y + height / 2;
  return quad(id, {{l, b, z}, {r, b, z}, {r, t, z}, {l, t, z}}, colorHex);
}

double PictureStage::meteredLux() const {
  const auto& e = bundle.photometry.exposure;
  return bundle.photometry.constants.incidentConstantFlat * e.tStop * e.tStop * 360 * e.fps /
         (e.shutterAngleDeg * e.iso);
}

PhotometrySun& PictureStage::sun(double azDeg, double elDeg, double ofMetered) {
  return bundle.photometry.suns.emplace_back(PhotometrySun{
      .id = "sun", .azDeg = azDeg, .elDeg = elDeg, .lux = ofMetered * meteredLux(), .castShadow = true});
}

void PictureStage::texture(const std::string& key, const char* encoder, int width, int height,
                           const std::vector<std::string>& pixels) {
  const auto free = [](auto* object, auto release) {
    return std::shared_ptr<void>(object, [=](void*) mutable { release(&object); });
  };
  // Blocks, which lossy encoders keep the colours of.
  constexpr int texelSide = 16;
  width *= texelSide;
  height *= texelSide;
  const auto* codec = avcodec_find_encoder_by_name(encoder);
  if (codec == nullptr) throw std::runtime_error("no encoder");
  auto* context = avcodec_alloc_context3(codec);
  const auto freeContext = free(context, avcodec_free_context);
  auto* frame = av_frame_alloc();
  const auto freeFrame = free(frame, av_frame_free);
  auto* packet = av_packet_alloc();
  const auto freePacket = free(packet, av_packet_free);
  frame->width = context->width = width;
  frame->height = context->height = height;
  context->time_base = {1, 1};
  context->pix_fmt = codec->id == AV_CODEC_ID_PNG    ? AV_PIX_FMT_RGBA
                     : codec->id == AV_CODEC_ID_WEBP ? AV_PIX_FMT_BGRA
                                                     : AV_PIX_FMT_YUVJ444P;
  frame->format = context->pix_fmt;
  context->flags |= AV_CODEC_FLAG_QSCALE;
  context->global_quality = frame->quality = FF_QP2LAMBDA;
  avcodec_open2(context, codec, nullptr);
  av_frame_get_buffer(frame, 0);
  std::vector<std::uint8_t> rgba;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const auto& pixel =
          pixels[static_cast<std::size_t>(y / texelSide * (width / texelSide) + x / texelSide)];
      const auto value = std::stoul(pixel.substr(1, 6), nullptr, 16);
      const auto alpha = pixel.size() > 7 ? std::stoul(pixel.substr(7), nullptr, 16) : 255;
      for (const auto byte : {value >> 16, value >> 8 & 255, value & 255, alpha}) {
        rgba.push_back(static_cast<std::uint8_t>(byte));
      }
    }
  }
  rgba.resize(rgba.size() + 64);
  auto* scaler = sws_getContext(width, height, AV_PIX_FMT_RGBA, width, height, context->pix_fmt, SWS_POINT,
                                nullptr, nullptr, nullptr);
  const std::uint8_t* const planes[] = {rgba.data(), nullptr, nullptr, nullptr};
  const int strides[] = {width * 4, 0, 0, 0};
  sws_scale(scaler, planes, strides, 0, height, frame->data, frame->linesize);
  sws_freeContext(scaler);
  avcodec_send_frame(context, frame);
  avcodec_send_frame(context, nullptr);
  if (avcodec_receive_packet(context, packet) < 0) throw std::runtime_error("not encoded");
  bundle.textures[key] = Bytes(std::vector<std::uint8_t>(packet->data, packet->data + packet->size));
}

void PictureStage::track(const std::string& targetId, const std::vector<TransformSample>& perFrame) {
  bundle.animation.tracks.push_back({.targetId = targetId, .perFrame = perFrame});
}

PixelBuffer PictureStage::render(std::int64_t frame, std::stop_token stop) {
  finish();
  Shot shot(bundle, options, notices);
  const auto [width, height] = shot.size();
  auto picture = PixelBufferFactory(width, height).buffer();
  shot.prepare(makePictureSource);
  shot.render(frame, picture, stop);
  return picture;
}

Shown PictureStage::at(const PixelBuffer& picture, int x, int y) {
  const auto* pixel = picture.row(y) + 4 * x;
  return {pixel[2], pixel[1], pixel[0]};
}

std::vector<std::uint8_t> bytesOf(const PixelBuffer& picture) {
  std::vector<std::uint8_t> bytes;
  for (int y = 0; y < picture.height(); ++y)
    bytes.insert(bytes.end(), picture.row(y), picture.row(y) + 4 * picture.width());
  return bytes;
}

}  // namespace renderkit::test
