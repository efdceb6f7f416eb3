#pragma once

#include "renderkit/Notices.h"
#include "renderkit/bundle/BakeBundle.h"
#include "renderkit/shot/RenderOptions.h"
#include "renderkit/video/PixelBuffer.h"

#include <array>
#include <cstdint>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace renderkit::test {

using Point = std::array<float, 3>;

/// Red, green and blue as the picture shows them.
struct Shown {
  int red, green, blue;
  bool operator==(const Shown&) const = default;
};

/// A bundle that grows mesh by mesh, and what a camera sees of it. The camera stands at (0, 0, 10)
/// and looks along -Z; at the origin's depth the picture is 2 metres high, so that a picture of
/// 64 by 64 pixels shows 1/32 metre with each.
class PictureStage {
 public:
  PictureStage();

  BakeBundle bundle;
  RenderOptions options{.threads = 2};
  Notices notices;

  /// Two triangles a-b-c and a-c-d, seen from where they turn counterclockwise. Texture
  /// coordinates: (0, 0) at a, (1, 0) at b, (1, 1) at c, (0, 1) at d.
  MeshRecord& quad(const std::string& id, const std::vector<Point>& corners,
                   const std::string& colorHex = "#ffffff");
  /// Upright, facing the camera, with its middle at (x, y, z).
  MeshRecord& card(const std::string& id, float x, float y, float z, float width, float height,
                   const std::string& colorHex = "#ffffff");
  MeshRecord& mesh(const std::string& id, const std::vector<float>& positions,
                   const std::vector<std::uint32_t>& indices, const std::vector<float>& uvs = {});

  /// A sun from azimuth and elevation in degrees. At 1 the picture shows a white card as linear 1.
  PhotometrySun& sun(double azDeg, double elDeg, double ofMetered = 1);
  /// The illuminance that the exposure is metered for, in lux.
  double meteredLux() const;
  void ambient(double ofMetered) { bundle.photometry.ambient.lux = ofMetered * meteredLux(); }
  /// A texture under that key, from rows of "#rrggbb" encoded by one of FFmpeg's encoders.
  void texture(const std::string& key, const char* encoder, int width, int height,
               const std::vector<std::string>& pixels);

  CameraFrameSample& camera() { return bundle.animation.cameras[0].perFrame[0]; }
  void track(const std::string& targetId, const std::vector<TransformSample>& perFrame);

  /// Makes the bundle's meshes.bin from what was added.
  void finish() { bundle.meshesBin = Bytes(bin_); }
  /// Finishes the bundle and renders a frame.
  PixelBuffer render(std::int64_t frame = 0, std::stop_token stop = {});
  static Shown at(const PixelBuffer& picture, int x, int y);

 private:
  MeshBufferRange append(const void* data, std::size_t elements);
  std::vector<std::uint8_t> bin_;
};

/// The picture's pixels without what lies between the rows.
std::vector<std::uint8_t> bytesOf(const PixelBuffer& picture);

}  // namespace renderkit::test
