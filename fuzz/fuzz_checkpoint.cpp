// Any payload: read in one pass it is taken or refused as a reader of its tree would, with
// the same fields.
#include "base/Encodings.h"
#include "base/Identifiers.h"
#include "base/JSON.h"
#include "base/JSONArguments.h"
#include "base/SHA256.h"
#include "store/ScenewardCheckpointRequest.h"

#include <cstdint>
#include <cstdlib>
#include <optional>

namespace {

using namespace vorlane;

const std::string project = "bbbbbbbb-0000-4000-8000-000000000002";

struct Refused {};

std::optional<std::int64_t> integer(const JSONMap& map, std::string_view key) {
  const auto* value = json::find(map, key);
  if (value == nullptr || !value->is_int64()) return std::nullopt;
  return value->get_int64();
}

std::string uuid(const JSONMap& map, std::string_view key) {
  return canonicalUUID(json::stringOr(map, key)).value_or("");
}

/// The plain reading: the tree, then place by place.
ScenewardCheckpointRequest readTree(std::string_view text) {
  const auto require = [](bool good) {
    if (!good) throw Refused();
  };
  const auto root = parseJSON(text);
  require(root.is_object());
  const auto& payload = root.get_object();
  ScenewardCheckpointRequest request;
  request.operationID = uuid(payload, "operationId");
  request.expectedRevision = integer(payload, "expectedRevision").value_or(-1);
  require(!request.operationID.empty() && request.expectedRevision >= 0);
  const auto* checkpoint = json::object(payload, "checkpoint");
  require(checkpoint != nullptr && integer(*checkpoint, "schemaVersion") == 1);
  request.checkpointID = uuid(*checkpoint, "id");
  request.contentHash = json::stringOr(*checkpoint, "contentHash");
  require(!request.checkpointID.empty() && request.contentHash.size() == 64 &&
          request.contentHash.find_first_not_of("0123456789abcdef") == std::string::npos);
  const auto* document = json::object(*checkpoint, "projectDocument");
  require(document != nullptr && uuid(*document, "id") == project &&
          json::arrayOfObjects(*document, "scenes") != nullptr);
  const auto* assets = json::arrayOfObjects(*checkpoint, "assets");
  require(assets != nullptr && assets->size() == 1);
  const auto& asset = assets->front().get_object();
  require(json::stringOr(asset, "kind") == "project-archive" &&
          json::stringOr(asset, "id") == "project-archive");
  const auto encoded = json::string(asset, "data");
  const auto data = encoded ? base64Decoded(*encoded) : std::nullopt;
  require(data && integer(asset, "bytes") == static_cast<std::int64_t>(data->size()) &&
          json::stringOr(asset, "sha256") == sha256Hex(*data));
  return request;
}

/// The fields, or how the reading failed, in one text.
template <class Read>
std::string outcome(Read read) {
  try {
    const ScenewardCheckpointRequest request = read();
    return request.operationID + request.checkpointID + request.contentHash +
           std::to_string(request.expectedRevision);
  } catch (const Refused&) {
    return "refused";
  } catch (const ScenewardCheckpointRequest::QueueError&) {
    return "refused";
  } catch (const JSONParseFailure& failure) {
    return failure.description();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto onePass = outcome([&] { return ScenewardCheckpointRequest::read("o", project, text); });
  if (onePass != outcome([&] { return readTree(text); })) std::abort();
  return 0;
}
