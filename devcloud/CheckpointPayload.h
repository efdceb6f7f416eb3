#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace vorlane::devcloud {

/// What the cloud keeps of a checkpoint that arrived; the payload itself is let go.
struct CheckpointPayload {
  static constexpr std::size_t largest = std::size_t{64} << 20;

  /// In lower case, like the project's id.
  std::string operationID;
  std::int64_t expectedRevision = 0;
  /// As they came.
  std::string checkpointID;
  std::string contentHash;
  /// The "name" or "title" of the project document; empty when it has none.
  std::string projectName;
};

/// Reads the body of a save to the project `projectID` (a UUID in lower case),
/// its asset's length and digest included. Throws an apiError: 413 when it is
/// larger than `largest`, 400 when it is no JSON object, 422 naming the field
/// that is not what it has to be.
CheckpointPayload readCheckpointPayload(std::string_view body, const std::string& projectID);

}  // namespace vorlane::devcloud
