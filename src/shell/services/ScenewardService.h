#pragma once

#include "shell/AgentContext.h"
#include "shell/Service.h"
#include "sync/ScenewardPushTriggers.h"

#include <memory>

namespace vorlane {

/// Sceneward projects: their tools, and the saves that go up.
class ScenewardService final : public Service {
 public:
  explicit ScenewardService(AgentContext& context) : context_(context) {}

  std::string_view name() const override { return "Sceneward"; }
  void contribute(Contributions& to) override;
  bool needsStore() const override { return true; }
  void start() override;
  Task<> stop() override;

 private:
  AgentContext& context_;
  std::unique_ptr<ScenewardPushTriggers> scenewardPushTriggers_;
};

}  // namespace vorlane
