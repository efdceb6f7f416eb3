#pragma once

#include "base/Failure.h"
#include "base/tasks/Task.h"
#include "cloud/API.h"
#include "platform/SignalCenter.h"
#include "store/ScenewardCheckpointQueue.h"

#include <functional>
#include <string>
#include <string_view>

namespace vorlane {

/// Sends one explicit Cloud Save to the Sceneward cloud API. Knows no queue.
struct ScenewardPushClient {
  using Request = ScenewardCheckpointRequest;
  class HTTPFailure;
  class Failure;

  /// Tells the cloud which kind of program saves.
  static constexpr char sourceHeader[] = "X-Sceneward-Source";
  static constexpr char sourceValue[] = "mac";
  /// The signal between processes that a save waits in the queue.
  static constexpr std::string_view pendingNotice = checkpointPendingSignal;

  cloud::API api;
  /// Sets the headers that tell this device from others; may wait for the vault.
  std::function<void(URLRequest&)> identify;

  /// Posts the pending notice; false when it could not be sent.
  static bool announcePending(SignalCenter& signals) { return signals.post(pendingNotice); }

  /// Asks whether the account may write, sends the save and returns the receipt, which has been
  /// checked against the request. `stillCurrent` is asked on the caller's executor before each
  /// step and after the last; it may read the store. The payload moves into its request. Throws
  /// Failure, HTTPFailure, QueueError (`invalidReceipt`), JSONParseFailure, TransportFailure. The
  /// client has to live until it ends.
  Task<std::string> publish(Request request, std::function<bool()> stillCurrent) const;

 private:
  URLRequest requestFor(std::string method, std::string_view path, const std::string& token) const;
};

/// The cloud answered with a status outside 200 to 299.
class ScenewardPushClient::HTTPFailure : public vorlane::Failure {
 public:
  explicit HTTPFailure(int status);
  int status() const noexcept { return status_; }

 private:
  int status_;
};

/// Why a save was not sent, or its answer does not count.
class ScenewardPushClient::Failure : public vorlane::Failure {
 public:
  enum class Kind {
    signedOut,              ///< there is no token
    ownerChanged,           ///< the save is no longer this account's to make
    cloudWriteUnavailable,  ///< the cloud does not let this account write, or did not say so clearly
  };

  explicit Failure(Kind kind);
  Kind kind() const noexcept { return kind_; }

 private:
  Kind kind_;
};

}  // namespace vorlane
