#pragma once

#include "base/Failure.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace vorlane {

/// One explicit Cloud Save of a project: a checkpoint that checks itself, and what is
/// needed of it to send it once and in its order. A plain value; the payload may be
/// large, so move it.
struct ScenewardCheckpointRequest {
  class QueueError;

  /// The largest payload, in bytes.
  static constexpr std::size_t maximumPayload = std::size_t{64} << 20;

  /// Identity of this attempt to save; a UUID in lower case, like all three.
  std::string operationID;
  std::string ownerID;
  std::string projectID;
  std::string checkpointID;
  /// 64 lower-case hexadecimal digits, as the payload states them.
  std::string contentHash;
  /// The cloud's revision that this save builds on; 0 or more.
  std::int64_t expectedRevision = 0;
  /// The JSON document as it was received.
  std::string payload;
  /// Lower-case hexadecimal SHA-256 of `payload`.
  std::string payloadHash;

  /// Reads and checks a payload. Throws QueueError (`invalidRequest`), or JSONParseFailure
  /// when it is no JSON. The payload is read in one pass, its asset decoded and hashed on
  /// the way, without a second copy of either.
  static ScenewardCheckpointRequest build(std::string ownerID, std::string_view projectID,
                                          std::string payload);
  /// The same checks on a payload that stays where it is. The result has neither the payload
  /// nor its hash.
  static ScenewardCheckpointRequest read(std::string ownerID, std::string_view projectID,
                                         std::string_view payload);

  /// Lower-case hexadecimal SHA-256.
  static std::string digest(std::string_view bytes);

  /// Checks the cloud's receipt for this save and returns its "committedManifestRevision".
  /// Throws QueueError (`invalidReceipt`), or JSONParseFailure when it is no JSON. Needs no payload.
  /// Ends the process when there is no revision behind `expectedRevision`.
  std::int64_t validateReceipt(std::string_view receipt) const;
};

/// Why the queue refused something.
class ScenewardCheckpointRequest::QueueError : public Failure {
 public:
  enum class Kind { invalidRequest, conflictingOperation, invalidReceipt, storageQuota };

  /// `reason` says what was wrong, for a person.
  /// The description is the case's name and it.
  QueueError(Kind kind, std::string_view reason);

  Kind kind() const noexcept { return kind_; }
  /// "invalidRequest" and the like.
  std::string_view caseName() const noexcept;

 private:
  Kind kind_;
};

}  // namespace vorlane
