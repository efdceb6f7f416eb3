#pragma once

#include "shell/AgentContext.h"
#include "shell/AppRecentsHolder.h"
#include "shell/Service.h"

namespace vorlane {

/// The person's recent documents, on a store of their own, and the suite's tools over them.
class RecentsService final : public Service {
 public:
  /// Opens that store. Throws when not even a throw-away one can be had.
  explicit RecentsService(AgentContext& context);

  std::string_view name() const override { return "recents"; }
  void contribute(Contributions& to) override;
  void start() override;
  Task<> stop() override;

 private:
  AgentContext& context_;
  AppRecentsHolder holder_;
};

}  // namespace vorlane
