#pragma once

#include "sync/ScenewardPusher.h"
#include "tests/sync/CloudBench.h"

#include <algorithm>
#include <memory>
#include <string>

namespace vorlane {

/// The queue of saves and its pusher beside the cloud.
class SaveBench : public CloudBench {
 protected:
  NotificationCenter notifications;
  ScenewardCheckpointQueue queue{store, [this] { return present; }};
  std::shared_ptr<ScenewardPusher> pusher = std::make_shared<ScenewardPusher>(
      queue,
      ScenewardPushClient{
          .base = cloud.base(),
          .bearer = bearer(),
          .send = network(),
          .identify =
              [](URLRequest& request) { request.headers.emplace_back("x-vorlane-device-id", "device"); }},
      currentUser(), notifications, journal, log.log());

  ScenewardCheckpointRequest save(const std::string& project, std::int64_t revision = 0) {
    return await(
        queue.enqueue("auth0|ana", project, checkpointPayload(project, newLowercaseUUID(), revision)));
  }
  /// "pushed", "failed", "blocked" or "none".
  static std::string said(const ScenewardPusher::Outcomes& outcomes, const std::string& operation) {
    if (!outcomes.contains(operation)) return "none";
    constexpr const char* names[] = {"pushed", "failed", "blocked"};
    return names[outcomes.at(operation).index()];
  }
  std::string rowOf(const std::string& operation) {
    return inFile("SELECT status FROM sceneward_checkpoint_queue WHERE operation_id='" + operation + "'");
  }
  std::size_t commitsOf(const std::string& operation) {
    return static_cast<std::size_t>(
        std::ranges::count(cloud.commits("auth0|ana"), operation, &devcloud::Commit::operationID));
  }
};

}  // namespace vorlane
