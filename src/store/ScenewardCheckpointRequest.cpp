#include "store/ScenewardCheckpointRequest.h"

#include "base/Date.h"
#include "base/Identifiers.h"
#include "base/JSON.h"
#include "base/JSONArguments.h"
#include "base/SHA256.h"
#include "base/Text.h"
#include "store/CheckpointReader.h"
#include "store/ProgrammingFault.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <limits>
#include <optional>
#include <utility>

namespace vorlane {
namespace {

using Place = CheckpointReader::Place;
using Kind = CheckpointReader::Value::Kind;
using QueueError = ScenewardCheckpointRequest::QueueError;

constexpr std::int64_t schemaVersion = 1;
constexpr std::string_view assetName = "project-archive";

[[noreturn]] void refuse(const std::string& reason) {
  throw QueueError(QueueError::Kind::invalidRequest, reason);
}

/// Refuses the payload over the value of a place unless `good`.
void require(bool good, Place place, std::string_view expected) {
  if (!good) refuse(fmt::format("{} must be {}", CheckpointReader::name(place), expected));
}

/// The text of a place; empty, which none may be, for any other value.
const std::string& textAt(const CheckpointReader& reading, Place place) {
  return reading[place].text;
}

std::string uuidAt(const CheckpointReader& reading, Place place) {
  const auto uuid = canonicalUUID(textAt(reading, place));
  require(uuid.has_value(), place, "a UUID");
  return *uuid;
}

std::optional<std::int64_t> integerAt(const CheckpointReader& reading, Place place) {
  const auto& value = reading[place];
  return value.kind == Kind::integer ? std::optional(value.integer) : std::nullopt;
}

bool isDigest(std::string_view text) {
  const auto isHex = [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); };
  return text.size() == 64 && std::ranges::all_of(text, isHex);
}

void requireDocument(const CheckpointReader& reading, std::string_view projectID) {
  const auto kindAt = [&](Place place) { return reading[place].kind; };
  require(kindAt(Place::projectDocument) == Kind::object, Place::projectDocument, "an object");
  require(asciiLowercased(textAt(reading, Place::documentID)) == projectID, Place::documentID,
          "the project's id");
  const auto& scenes = reading[Place::scenes];
  require(scenes.kind == Kind::array && scenes.objects == scenes.elements, Place::scenes,
          "an array of objects");
}

void requireAsset(const CheckpointReader& reading) {
  const auto& assets = reading[Place::assets];
  require(assets.kind == Kind::array && assets.elements == 1 && assets.objects == 1, Place::assets,
          "an array of exactly one object");
  require(textAt(reading, Place::assetKind) == assetName, Place::assetKind, "\"project-archive\"");
  require(textAt(reading, Place::assetID) == assetName, Place::assetID, "\"project-archive\"");
  const auto& decoded = reading.asset();
  require(decoded.has_value(), Place::assetData, "standard base64");
  require(integerAt(reading, Place::assetBytes) == decoded->bytes, Place::assetBytes,
          "the length of the decoded data");
  require(textAt(reading, Place::assetSHA256) == decoded->sha256, Place::assetSHA256,
          "the SHA-256 of the decoded data");
}

struct CaseName {
  QueueError::Kind kind;
  std::string_view name;
};
constexpr std::array caseNames{
    CaseName{QueueError::Kind::invalidRequest, "invalidRequest"},
    CaseName{QueueError::Kind::conflictingOperation, "conflictingOperation"},
    CaseName{QueueError::Kind::invalidReceipt, "invalidReceipt"},
    CaseName{QueueError::Kind::storageQuota, "storageQuota"},
};

std::string_view nameOf(QueueError::Kind kind) {
  return std::ranges::find(caseNames, kind, &CaseName::kind)->name;
}

}  // namespace

QueueError::QueueError(Kind kind, std::string_view reason)
    : Failure(fmt::format("{}: {}", nameOf(kind), reason)), kind_(kind) {}

std::string_view QueueError::caseName() const noexcept {
  return nameOf(kind_);
}

ScenewardCheckpointRequest ScenewardCheckpointRequest::read(std::string ownerID, std::string_view projectID,
                                                            std::string_view payload) {
  if (ownerID.empty()) refuse("the owner id is empty");
  const auto project = canonicalUUID(projectID);
  if (!project) refuse(fmt::format("the project id \"{}\" is no UUID", projectID));
  if (payload.size() > maximumPayload) {
    refuse(fmt::format("the payload is larger than {} bytes", maximumPayload));
  }
  const auto reading = CheckpointReader::read(payload);
  require(reading[Place::payload].kind == Kind::object, Place::payload, "a JSON object");

  ScenewardCheckpointRequest request;
  request.ownerID = std::move(ownerID);
  request.projectID = *project;
  request.operationID = uuidAt(reading, Place::operationID);
  const auto revision = integerAt(reading, Place::expectedRevision);
  require(revision.value_or(-1) >= 0, Place::expectedRevision, "an integer, 0 or more");
  request.expectedRevision = *revision;
  require(reading[Place::checkpoint].kind == Kind::object, Place::checkpoint, "an object");
  require(integerAt(reading, Place::schemaVersion) == schemaVersion, Place::schemaVersion, "the integer 1");
  request.checkpointID = uuidAt(reading, Place::checkpointID);
  requireDocument(reading, *project);
  request.contentHash = textAt(reading, Place::contentHash);
  require(isDigest(request.contentHash), Place::contentHash, "64 lower-case hexadecimal digits");
  requireAsset(reading);
  return request;
}

ScenewardCheckpointRequest ScenewardCheckpointRequest::build(std::string ownerID, std::string_view projectID,
                                                             std::string payload) {
  auto request = read(std::move(ownerID), projectID, payload);
  request.payloadHash = digest(payload);
  request.payload = std::move(payload);
  return request;
}

std::string ScenewardCheckpointRequest::digest(std::string_view bytes) {
  return sha256Hex(bytes);
}

std::int64_t ScenewardCheckpointRequest::validateReceipt(std::string_view receipt) const {
  const auto refuseReceipt = [](std::string_view reason) {
    throw QueueError(QueueError::Kind::invalidReceipt, reason);
  };
  const auto value = parseJSON(receipt);
  if (!value.is_object()) refuseReceipt("the receipt is not a JSON object");
  const auto& map = value.get_object();
  if (asciiLowercased(json::stringOr(map, "checkpointId")) != checkpointID) {
    refuseReceipt("checkpointId is not that of the checkpoint");
  }
  if (json::stringOr(map, "contentHash") != contentHash) {
    refuseReceipt("contentHash is not that of the checkpoint");
  }
  const auto* revision = json::find(map, "committedManifestRevision");
  if (revision == nullptr || !revision->is_int64()) {
    refuseReceipt("committedManifestRevision must be an integer");
  }
  if (expectedRevision == std::numeric_limits<std::int64_t>::max()) {
    programmingFault("checkpoint queue: no revision follows the expected one of operation " + operationID);
  }
  if (revision->get_int64() != expectedRevision + 1) {
    refuseReceipt(fmt::format("committedManifestRevision must be {}", expectedRevision + 1));
  }
  if (!dateFromISO8601(json::stringOr(map, "committedAt"))) {
    refuseReceipt("committedAt must be an ISO 8601 time");
  }
  return revision->get_int64();
}

}  // namespace vorlane
