#pragma once

#include "base/Encodings.h"
#include "base/Identifiers.h"
#include "base/JSON.h"
#include "base/SHA256.h"

#include <cstdint>
#include <string>

namespace vorlane {

/// A checkpoint of a project that the queue and the cloud take, as the Sceneward application
/// would hand it over.
inline std::string checkpointPayload(const std::string& project, const std::string& operation,
                                     std::int64_t revision, const std::string& archive = "archive") {
  const JSONMap asset{{"kind", "project-archive"},
                      {"id", "project-archive"},
                      {"data", base64Encoded(archive)},
                      {"bytes", archive.size()},
                      {"sha256", sha256Hex(archive)}};
  const JSONMap document{{"id", project}, {"name", "Pier"}, {"scenes", JSONArray()}};
  return writeJSON(JSONMap{{"operationId", operation},
                           {"expectedRevision", revision},
                           {"checkpoint", JSONMap{{"schemaVersion", 1},
                                                  {"id", newLowercaseUUID()},
                                                  {"projectDocument", document},
                                                  {"contentHash", sha256Hex(archive)},
                                                  {"assets", JSONArray{asset}}}}});
}

}  // namespace vorlane
