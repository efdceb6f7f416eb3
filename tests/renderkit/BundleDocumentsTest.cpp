#include "renderkit/bundle/BundleDocuments.h"

#include "renderkit/BundleBuilder.h"
#include "renderkit/bundle/BakeBundleDecoder.h"
#include "renderkit/bundle/JSONDocument.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace renderkit {
namespace {

using testing::failureOf, testing::TestBundle, testing::zipBytes;
namespace json = boost::json;

json::object manifestOf(const TestBundle& bundle) {
  return encode(bundle.manifest).as_object();
}

/// The failure of the sound manifest with one key changed; `value` is JSON, or empty to take the key out.
std::string changed(const char* key, const char* value) {
  auto manifest = manifestOf({});
  // Put in as text, since it may be a number that no double holds.
  manifest[key] = "@";
  if (*value == '\0') manifest.erase(key);
  auto text = json::serialize(manifest);
  if (const auto at = text.find("\"@\""); at != std::string::npos) text.replace(at, 3, value);
  return failureOf([&] { decodeManifest(text); });
}

TEST(Manifest, NamesTheFirstWrongField) {
  constexpr char fine[] = "nothing was thrown";
  const std::array<const char*, 3> cases[] = {
      {"version", "1.0", fine},
      {"version", "2", "[bakeBundle] unsupported bundle version 2 (expected 1)"},
      {"version", "\"1\"", "[bakeBundle] unsupported bundle version 1 (expected 1)"},
      {"version", "true", "[bakeBundle] unsupported bundle version true (expected 1)"},
      {"version", "null", "[bakeBundle] unsupported bundle version null (expected 1)"},
      {"version", "", "[bakeBundle] unsupported bundle version undefined (expected 1)"},
      {"fps", "0", "[bakeBundle] manifest.fps must be a positive number"},
      {"fps", "\"24\"", "[bakeBundle] manifest.fps must be a positive number"},
      {"fps", "1e999", "[bakeBundle] manifest.fps must be a positive number"},
      {"width", "-1", "[bakeBundle] manifest.width must be a positive number"},
      {"width", "64.5", "[bakeBundle] manifest.json: width is not an integer"},
      {"width", "64.0", fine},
      {"height", "", "[bakeBundle] manifest.height must be a positive number"},
      {"frameCount", "true", "[bakeBundle] manifest.frameCount must be a positive number"},
      {"frameCount", "1e300", "[bakeBundle] manifest.json: frameCount is not an integer"},
      {"outputFolderPath", "7", "[bakeBundle] manifest.outputFolderPath must be a string"},
      {"createdAtIso", "null", "[bakeBundle] manifest.createdAtIso must be a string"},
      {"slates", "[]", "[bakeBundle] manifest.slates is malformed"},
      {"slates", R"({"project":"","scene":"","setup":""})", "[bakeBundle] manifest.slates is malformed"},
      {"burnIn", "true", "[bakeBundle] manifest.burnIn is malformed"},
      {"burnIn", "{}", "[bakeBundle] manifest.json: burnIn.title is missing"},
      {"isStatic", "0", "[bakeBundle] manifest.json: isStatic is not true or false"},
      {"rayTracing", "", "[bakeBundle] manifest.json: rayTracing is missing"},
      {"of later versions", "{}", fine},
  };
  for (const auto& [key, value, result] : cases)
    EXPECT_EQ(changed(key, value), result) << key << " " << value;

  // Several wrong at once: the order of the checks decides.
  auto manifest = manifestOf({});
  manifest["burnIn"] = manifest["slates"] = manifest["createdAtIso"] = manifest["height"] = nullptr;
  for (const char* text :
       {"[bakeBundle] manifest.height must be a positive number",
        "[bakeBundle] manifest.createdAtIso must be a string", "[bakeBundle] manifest.slates is malformed",
        "[bakeBundle] manifest.burnIn is malformed"}) {
    EXPECT_EQ(failureOf([&] { decodeManifest(json::serialize(manifest)); }), text);
    const auto sound = manifestOf({});
    for (const char* key : {"height", "createdAtIso", "slates"}) {
      if (manifest[key].is_null()) {
        manifest[key] = sound.at(key);
        break;
      }
    }
  }
  EXPECT_EQ(failureOf([] { decodeManifest("[1]"); }), "[bakeBundle] manifest is not an object");
  EXPECT_THAT(failureOf([] { decodeManifest("{\"version\": 1,}"); }),
              ::testing::StartsWith("[bakeBundle] manifest.json is no JSON: "));
}

TEST(Documents, SayWhereAValueIsWrong) {
  const auto mesh = [](const char* members) {
    return failureOf(
        [&] { decodeMeshTable(std::string(R"({"textures":{},"records":[{)") + members + "}]}"); });
  };
  EXPECT_EQ(mesh(R"("name":"")"), "[bakeBundle] meshes.json: records[0].id is missing");
  EXPECT_EQ(mesh(R"("id":"","name":"","localMatrix":[1,"x"])"),
            "[bakeBundle] meshes.json: records[0].localMatrix[1] is not a number");
  EXPECT_EQ(mesh(R"("id":"","name":"","localMatrix":[1e999])"),
            "[bakeBundle] meshes.json: records[0].localMatrix[0] is beyond the range of a number");
  EXPECT_EQ(failureOf([] { decodeMeshTable("7"); }),
            "[bakeBundle] meshes.json: the document is not an object");
  const auto pose = [](const char* numbers) {
    return failureOf([&] {
      decodeAnimation(
          std::string(R"({"frameCount":1,"frameTimesS":[],"cameras":[],"tracks":[{"targetId":"a",)") +
          R"("perFrame":[)" + numbers + "]}]}");
    });
  };
  EXPECT_EQ(pose("[1,2,3,0,0,0,1]"), "nothing was thrown");
  EXPECT_EQ(
      pose("[1,2,3,0,0,1]"),
      "[bakeBundle] animation.json: tracks[0].perFrame[0]: TransformSample must have exactly 7 elements, got 6");
  EXPECT_EQ(
      pose("[1,2,3,0,0,1,1,1]"),
      "[bakeBundle] animation.json: tracks[0].perFrame[0]: TransformSample must have exactly 7 elements, got 8");
  EXPECT_EQ(pose(R"({"px":1})"), "[bakeBundle] animation.json: tracks[0].perFrame[0] is not an array");
}

PhotometryDoc fullPhotometry() {
  PhotometryDoc doc;
  doc.suns.push_back({.id = "s",
                      .azDeg = 0.1,
                      .elDeg = 1.0 / 3,
                      .lux = 1e5,
                      .discRadiusM = 2,
                      .distanceM = 100,
                      .falloff = 1,
                      .colorOverrideHex = "#ffeedd",
                      .cctK = 5600,
                      .discColorHex = "#ffffff",
                      .castShadow = true,
                      .mode = SunMode::moon,
                      .lockSunColor = true});
  doc.lights.push_back({.id = "l",
                        .name = "Key",
                        .fixtureId = "f",
                        .outputLumens = 1e4,
                        .luxAt10ft = 12,
                        .beamAngleDeg = 40,
                        .dimmer = 0.5,
                        .colorHex = "#ff0000",
                        .heightM = 3,
                        .aimAngleRad = 0.2,
                        .lightOn = true});
  doc.ambient = {.lux = 300, .cctK = 6500};
  doc.exposure = {.iso = 800,
                  .tStop = 2.8,
                  .shutterAngleDeg = 172.8,
                  .fps = 23.976,
                  .meterMode = MeterMode::incidentDome};
  return doc;
}

TEST(Photometry, SurvivesBothWaysWithEveryValue) {
  const auto doc = fullPhotometry();
  const auto text = printJSON(encode(doc));
  EXPECT_EQ(decodePhotometry(text), doc);
  EXPECT_THAT(text, ::testing::HasSubstr(R"("povMidGreyGain": 0.0003183098861837907)"));
  EXPECT_THAT(text, ::testing::HasSubstr(R"("meterMode": "incident-dome")"));
  EXPECT_THAT(text, ::testing::HasSubstr(R"("mode": "moon")"));
  EXPECT_THAT(text, ::testing::Not(::testing::HasSubstr("cookieId")));
  for (const auto mode : {MeterMode::incidentFlat, MeterMode::reflected}) {
    auto other = doc;
    other.exposure.meterMode = mode;
    EXPECT_EQ(decodePhotometry(printJSON(encode(other))), other);
  }
  EXPECT_EQ(decodePhotometry(printJSON(encode(PhotometryDoc{}))), PhotometryDoc{});
}

TEST(Photometry, HasADefaultForNoKeyThatIsMissing) {
  const auto sound = encode(fullPhotometry());
  const auto without = [&](const std::function<json::object&(json::value&)>& place) {
    const auto keys = [&] {
      auto copy = sound;
      std::vector<std::string> names;
      for (const auto& [key, value] : place(copy)) names.emplace_back(key);
      return names;
    }();
    int refused = 0;
    for (const auto& key : keys) {
      auto copy = sound;
      place(copy).erase(key);
      if (failureOf([&] { decodePhotometry(json::serialize(copy)); }).ends_with("." + key + " is missing"))
        ++refused;
    }
    return refused;
  };
  // All but the three optional ones of a sun; those that a light may lack are not there.
  EXPECT_EQ(without([](json::value& doc) -> json::object& { return doc.at("suns").at(0).as_object(); }), 10);
  EXPECT_EQ(without([](json::value& doc) -> json::object& { return doc.at("lights").at(0).as_object(); }),
            11);
  EXPECT_EQ(without([](json::value& doc) -> json::object& { return doc.at("constants").as_object(); }), 13);
  EXPECT_EQ(without([](json::value& doc) -> json::object& { return doc.at("exposure").as_object(); }), 5);
  auto odd = sound;
  odd.at("suns").at(0).at("mode") = "star";
  EXPECT_EQ(failureOf([&] { decodePhotometry(json::serialize(odd)); }),
            "[bakeBundle] photometry.json: suns[0].mode is unknown: \"star\"");
}

TEST(BakeBundle, DecodesInOrderAndNamesTheMissingEntry) {
  TestBundle bundle;
  bundle.meshTable.textures["brick"] = "b.png";
  bundle.textureFiles["b.png"] = "png bytes";
  const auto entries = bundle.entries();
  const auto whole = bundle.decoded();
  EXPECT_EQ(whole.manifest, bundle.manifest);
  EXPECT_EQ(whole.animation, bundle.animation);
  EXPECT_EQ(whole.textures.at("brick").text(), "png bytes");
  // Everything behind a missing entry is broken too, and is not reached.
  for (std::size_t i = 0; i < entries.size(); ++i) {
    auto rest = entries;
    for (std::size_t j = i + 1; j < rest.size(); ++j) rest[j].bytes = "broken";
    rest.erase(rest.begin() + static_cast<std::ptrdiff_t>(i));
    EXPECT_EQ(failureOf([&] { BakeBundleDecoder::decode(Bytes(zipBytes(rest))); }),
              "[bakeBundle] bundle entry missing: " + entries[i].name);
  }
  EXPECT_EQ(failureOf([] { BakeBundleDecoder::decode(Bytes(std::string_view("no archive"))); }),
            "[zip] not a ZIP archive (no end-of-central-directory)");
}

TEST(BakeBundle, ReadsFilesAndSaysWhyItCannot) {
  const vorlane::testing::TemporaryFolder folder;
  folder.write("a.zip", TestBundle().zip());
  EXPECT_EQ(BakeBundleDecoder::decode(folder.path("a.zip")).manifest.width, 64);
  EXPECT_EQ(failureOf([&] { BakeBundleDecoder::decode(folder.path("none")); }),
            folder.path("none") + " cannot be read: No such file or directory");
  EXPECT_EQ(failureOf([&] { BakeBundleDecoder::decode(std::filesystem::path(folder.path())); }),
            folder.path() + " cannot be read: Is a directory");
}

TEST(BakeBundle, ChecksARangeWhenItIsRead) {
  TestBundle made;
  made.put(std::vector<float>{1, 2, 3});
  const auto bundle = made.decoded();
  EXPECT_EQ(bundle.floats({.byteOffset = 4, .count = 2}), (std::vector<float>{2, 3}));
  EXPECT_EQ(bundle.integers({.byteOffset = 12, .count = 0}), std::vector<std::uint32_t>{});
  constexpr auto most = std::numeric_limits<std::int64_t>::max();
  const std::pair<MeshBufferRange, const char*> cases[] = {
      {{6, 1}, "[bakeBundle] meshes.bin range byteOffset 6 is not 4-byte aligned"},
      {{-6, 1}, "[bakeBundle] meshes.bin range byteOffset -6 is not 4-byte aligned"},
      {{-4, 1}, "[bakeBundle] meshes.bin range [-4, +1·4) exceeds bin size 12"},
      {{0, -1}, "[bakeBundle] meshes.bin range [0, +-1·4) exceeds bin size 12"},
      {{4, 3}, "[bakeBundle] meshes.bin range [4, +3·4) exceeds bin size 12"},
      {{16, 0}, "[bakeBundle] meshes.bin range [16, +0·4) exceeds bin size 12"},
      {{8, most}, "[bakeBundle] meshes.bin range [8, +9223372036854775807·4) exceeds bin size 12"},
      {{most - 3, 1}, "[bakeBundle] meshes.bin range [9223372036854775804, +1·4) exceeds bin size 12"},
  };
  for (const auto& [range, text] : cases) {
    EXPECT_EQ(failureOf([&, r = range] { bundle.floats(r); }), text);
    EXPECT_EQ(failureOf([&, r = range] { bundle.integers(r); }), text);
  }
}

}  // namespace
}  // namespace renderkit
