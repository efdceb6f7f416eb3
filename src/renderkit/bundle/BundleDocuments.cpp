#include "renderkit/bundle/BundleDocuments.h"

#include "renderkit/bundle/JSONCoding.h"
#include "renderkit/bundle/JSONDocument.h"

namespace renderkit::coding {

#define KEY(name)   \
  Key {             \
    #name, &R::name \
  }

template <>
struct Keys<BakeBundleSlates> {
  using R = BakeBundleSlates;
  static constexpr auto list = std::tuple{KEY(project), KEY(scene), KEY(setup), KEY(shot)};
};

template <>
struct Keys<BurnInConfig> {
  using R = BurnInConfig;
  static constexpr auto list = std::tuple{KEY(title), KEY(titleText), KEY(slate),     KEY(settings),
                                          KEY(legal), KEY(legalText), KEY(watermark), KEY(watermarkLogo)};
};

template <>
struct Keys<BakeBundleManifest> {
  using R = BakeBundleManifest;
  static constexpr auto list =
      std::tuple{KEY(version),    KEY(slates),           KEY(fps),         KEY(width),
                 KEY(height),     KEY(frameCount),       KEY(isStatic),    KEY(burnIn),
                 KEY(rayTracing), KEY(outputFolderPath), KEY(createdAtIso)};
};

template <>
struct Keys<MeshBufferRange> {
  using R = MeshBufferRange;
  static constexpr auto list = std::tuple{KEY(byteOffset), KEY(count)};
};

template <>
struct Keys<MeshMaterialRecord> {
  using R = MeshMaterialRecord;
  static constexpr auto list = std::tuple{KEY(colorHex), KEY(opacity), KEY(doubleSided), KEY(textureRef)};
};

template <>
struct Keys<MeshRecord> {
  using R = MeshRecord;
  static constexpr auto list =
      std::tuple{KEY(id),          KEY(name),     KEY(shapeId), KEY(localMatrix), KEY(material),
                 KEY(vertexCount), KEY(position), KEY(normal),  KEY(uv),          KEY(index)};
};

template <>
struct Keys<MeshTableDoc> {
  using R = MeshTableDoc;
  static constexpr auto list = std::tuple{KEY(records), KEY(textures)};
};

template <>
struct Keys<AnimationTrack> {
  using R = AnimationTrack;
  static constexpr auto list = std::tuple{KEY(targetId), KEY(perFrame)};
};

template <>
struct Keys<CameraFrameSample> {
  using R = CameraFrameSample;
  static constexpr auto list = std::tuple{KEY(pose), KEY(fovDeg), KEY(focusDistanceM)};
};

template <>
struct Keys<CameraTrack> {
  using R = CameraTrack;
  static constexpr auto list = std::tuple{KEY(cameraId), KEY(slate), KEY(isRef), KEY(perFrame)};
};

template <>
struct Keys<BakeAnimationDoc> {
  using R = BakeAnimationDoc;
  static constexpr auto list = std::tuple{KEY(frameCount), KEY(frameTimesS), KEY(tracks), KEY(cameras)};
};

template <>
struct Texts<SunMode> {
  static constexpr std::array list = {std::pair{SunMode::sun, "sun"}, std::pair{SunMode::moon, "moon"}};
};

template <>
struct Texts<MeterMode> {
  static constexpr std::array list = {std::pair{MeterMode::incidentFlat, "incident-flat"},
                                      std::pair{MeterMode::incidentDome, "incident-dome"},
                                      std::pair{MeterMode::reflected, "reflected"}};
};

template <>
struct Keys<PhotometrySun> {
  using R = PhotometrySun;
  static constexpr auto list =
      std::tuple{KEY(id),          KEY(azDeg),        KEY(elDeg),      KEY(lux),
                 KEY(discRadiusM), KEY(distanceM),    KEY(falloff),    KEY(colorOverrideHex),
                 KEY(cctK),        KEY(discColorHex), KEY(castShadow), KEY(mode),
                 KEY(lockSunColor)};
};

template <>
struct Keys<PhotometryLight> {
  using R = PhotometryLight;
  static constexpr auto list =
      std::tuple{KEY(id),           KEY(name),    KEY(fixtureId),   KEY(outputLumens), KEY(luxAt10ft),
                 KEY(beamAngleDeg), KEY(dimmer),  KEY(colorHex),    KEY(cctK),         KEY(penumbra),
                 KEY(cookieId),     KEY(heightM), KEY(aimAngleRad), KEY(lightOn)};
};

template <>
struct Keys<PhotometryAmbient> {
  using R = PhotometryAmbient;
  static constexpr auto list = std::tuple{KEY(lux), KEY(colorOverrideHex), KEY(cctK)};
};

template <>
struct Keys<PhotometryExposure> {
  using R = PhotometryExposure;
  static constexpr auto list =
      std::tuple{KEY(iso), KEY(tStop), KEY(shutterAngleDeg), KEY(fps), KEY(meterMode)};
};

template <>
struct Keys<PhotometryConstants> {
  using R = PhotometryConstants;
  static constexpr auto list =
      std::tuple{KEY(luxToIntensity),          KEY(renderLuxToIntensity),     KEY(povMidGreyGain),
                 KEY(sunSoftnessDistanceRefM), KEY(sunShadowRadiusMin),       KEY(sunShadowRadiusMax),
                 KEY(sunSoftnessGain),         KEY(sunFalloffDefault),        KEY(sunFalloffMin),
                 KEY(sunFalloffMax),           KEY(outputReferenceDistanceM), KEY(incidentConstantFlat),
                 KEY(incidentConstantDome)};
};

template <>
struct Keys<PhotometryDoc> {
  using R = PhotometryDoc;
  static constexpr auto list =
      std::tuple{KEY(suns), KEY(lights), KEY(ambient), KEY(exposure), KEY(constants)};
};

#undef KEY

constexpr std::array transformMembers = {&TransformSample::px, &TransformSample::py, &TransformSample::pz,
                                         &TransformSample::qx, &TransformSample::qy, &TransformSample::qz,
                                         &TransformSample::qw};

/// Not an object but an array of seven numbers.
void decode(const json::value& value, const Path& path, TransformSample& out) {
  const auto& numbers = array(value, path);
  if (numbers.size() != transformMembers.size()) {
    path.fail(fmt::format(": TransformSample must have exactly 7 elements, got {}", numbers.size()));
  }
  for (std::size_t i = 0; i < transformMembers.size(); ++i) {
    decode(numbers[i], Path(path, i), out.*transformMembers[i]);
  }
}

}  // namespace renderkit::coding

namespace renderkit {
namespace {

namespace json = boost::json;

/// A number as a person writes it, else JSON.
std::string printed(const json::value& value) {
  if (const auto* text = value.if_string()) return std::string(text->data(), text->size());
  return printJSONLine(value);
}

bool isPositive(const json::value* value) {
  if (value == nullptr || !value->is_number()) return false;
  const auto number = value->to_number<double>();
  return std::isfinite(number) && number > 0;
}

bool isString(const json::object& object, std::string_view key) {
  const auto* value = object.if_contains(key);
  return value != nullptr && value->is_string();
}

void checkVersion(const json::object& manifest) {
  const auto* version = manifest.if_contains("version");
  if (version == nullptr) throw BakeBundleError::unsupportedVersion("undefined");
  // The integer part counts; a boolean is no number.
  if (!version->is_number() || std::trunc(version->to_number<double>()) != 1) {
    throw BakeBundleError::unsupportedVersion(printed(*version));
  }
}

void checkManifest(const json::object& manifest) {
  checkVersion(manifest);
  for (const char* name : {"fps", "width", "height", "frameCount"}) {
    if (!isPositive(manifest.if_contains(name))) throw BakeBundleError::invalidNumberField(name);
  }
  for (const char* name : {"outputFolderPath", "createdAtIso"}) {
    if (!isString(manifest, name)) throw BakeBundleError::invalidStringField(name);
  }
  const auto* slates = manifest.if_contains("slates");
  if (slates == nullptr || !slates->is_object()) throw BakeBundleError::malformedSlates();
  for (const char* name : {"project", "scene", "setup", "shot"}) {
    if (!isString(slates->get_object(), name)) throw BakeBundleError::malformedSlates();
  }
  const auto* burnIn = manifest.if_contains("burnIn");
  if (burnIn == nullptr || !burnIn->is_object()) throw BakeBundleError::malformedBurnIn();
}

template <class Document>
Document decodeDocument(std::string_view text, std::string_view entry) {
  Document document;
  coding::decode(parseJSON(text, entry), coding::Path(entry), document);
  return document;
}

}  // namespace

BakeBundleManifest decodeManifest(std::string_view text) {
  const auto value = parseJSON(text, BakeBundleFiles::manifest);
  if (!value.is_object()) throw BakeBundleError::manifestNotAnObject();
  checkManifest(value.get_object());
  BakeBundleManifest manifest;
  coding::decode(value, coding::Path(BakeBundleFiles::manifest), manifest);
  return manifest;
}

MeshTableDoc decodeMeshTable(std::string_view text) {
  return decodeDocument<MeshTableDoc>(text, BakeBundleFiles::meshes);
}

BakeAnimationDoc decodeAnimation(std::string_view text) {
  return decodeDocument<BakeAnimationDoc>(text, BakeBundleFiles::animation);
}

PhotometryDoc decodePhotometry(std::string_view text) {
  return decodeDocument<PhotometryDoc>(text, BakeBundleFiles::photometry);
}

json::value encode(const TransformSample& sample) {
  json::array numbers;
  for (const auto member : coding::transformMembers) numbers.push_back(sample.*member);
  return numbers;
}

json::value encode(const BakeBundleManifest& manifest) {
  return coding::encode(manifest);
}
json::value encode(const MeshTableDoc& table) {
  return coding::encode(table);
}
json::value encode(const BakeAnimationDoc& animation) {
  return coding::encode(animation);
}
json::value encode(const PhotometryDoc& photometry) {
  return coding::encode(photometry);
}

}  // namespace renderkit
