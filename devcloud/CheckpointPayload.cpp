#include "devcloud/CheckpointPayload.h"

#include "base/Encodings.h"
#include "base/Identifiers.h"
#include "base/JSONArguments.h"
#include "base/SHA256.h"
#include "base/Text.h"
#include "devcloud/Fields.h"
#include "devcloud/Message.h"

#include <algorithm>
#include <limits>

namespace vorlane::devcloud {
namespace {

constexpr std::string_view archive = "project-archive";
/// The receipt names the next revision.
constexpr std::int64_t highestRevision = std::numeric_limits<std::int64_t>::max() - 1;

void require(bool holds, const char* field, const std::string& complaint) {
  if (!holds) throw FieldFailure(field, complaint);
}

std::string uuidField(Fields& fields, const char* key) {
  std::string text = fields.requiredString(key);
  require(canonicalUUID(text).has_value(), key, "must be a UUID");
  return text;
}

bool isContentHash(std::string_view text) {
  return text.size() == 64 &&
         std::ranges::all_of(text, [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
}

/// The asset's data is looked at where it lies: it is nearly all of the payload.
void checkAsset(const JSONMap& asset) {
  Fields fields(asset);
  require(fields.requiredString("kind") == archive, "kind", "must be \"project-archive\"");
  require(fields.requiredString("id") == archive, "id", "must be \"project-archive\"");
  const JSONValue* const data = fields.value("data");
  require(data && data->is_string(), "data", "must be a string");
  const auto bytes = base64Decoded(data->get_string());
  require(bytes.has_value(), "data", "must be base64");
  const auto length = fields.integer("bytes", 0, highestRevision);
  require(length == static_cast<std::int64_t>(bytes->size()), "bytes", "is not the length of \"data\"");
  require(fields.requiredString("sha256") == sha256Hex(*bytes), "sha256", "is not the digest of \"data\"");
}

void checkAssets(Fields& checkpoint) {
  const JSONArray& assets = checkpoint.requiredArray("assets");
  require(assets.size() == 1 && assets[0].is_object(), "assets", "must hold one object");
  try {
    checkAsset(assets[0].get_object());
  } catch (const FieldFailure& failure) {
    throw failure.within("assets[0]");
  }
}

/// The name, when the document is the project's.
std::string checkProjectDocument(const JSONMap& document, const std::string& projectID) {
  const auto id = json::string(document, "id");
  require(id && canonicalUUID(*id) == projectID, "projectDocument.id", "is not the project's id");
  require(json::arrayOfObjects(document, "scenes"), "projectDocument.scenes", "must be an array of objects");
  return json::nonEmptyString(document, "name").value_or(json::stringOr(document, "title"));
}

void checkCheckpoint(const JSONMap& checkpoint, const std::string& projectID, CheckpointPayload& payload) {
  Fields fields(checkpoint);
  require(fields.integer("schemaVersion", 1, 1).has_value(), "schemaVersion", "is missing");
  payload.checkpointID = uuidField(fields, "id");
  payload.projectName = checkProjectDocument(fields.requiredObject("projectDocument"), projectID);
  payload.contentHash = fields.requiredString("contentHash");
  require(isContentHash(payload.contentHash), "contentHash", "must be 64 lower-case hexadecimal digits");
  checkAssets(fields);
}

}  // namespace

CheckpointPayload readCheckpointPayload(std::string_view body, const std::string& projectID) {
  if (body.size() > CheckpointPayload::largest) throw apiError(413, "the checkpoint is larger than 64 MiB");
  try {
    const JSONMap map = parseJSONMap(body);
    Fields fields(map);
    CheckpointPayload payload;
    payload.operationID = asciiLowercased(uuidField(fields, "operationId"));
    const auto revision = fields.integer("expectedRevision", 0, highestRevision);
    require(revision.has_value(), "expectedRevision", "is missing");
    payload.expectedRevision = *revision;
    const JSONMap& checkpoint = fields.requiredObject("checkpoint");
    try {
      checkCheckpoint(checkpoint, projectID, payload);
    } catch (const FieldFailure& failure) {
      throw failure.within("checkpoint");
    }
    return payload;
  } catch (const JSONParseFailure& failure) {
    throw apiError(400, "body: " + failure.description());
  } catch (const FieldFailure& failure) {
    throw HTTPError(422, {{"success", false}, {"error", failure.description()}, {"field", failure.field()}});
  }
}

}  // namespace vorlane::devcloud
