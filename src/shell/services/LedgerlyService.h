#pragma once

#include "base/tasks/TaskGroup.h"
#include "shell/AgentContext.h"
#include "shell/Service.h"
#include "tools/ledgerly/LedgerlyWebClient.h"

#include <memory>
#include <optional>

namespace vorlane {

/// Ledgerly sheets: their tools, and the edits that go up once a minute.
class LedgerlyService final : public Service {
 public:
  explicit LedgerlyService(AgentContext& context) : context_(context) {}

  std::string_view name() const override { return "Ledgerly"; }
  void contribute(Contributions& to) override;
  bool needsStore() const override { return true; }
  void start() override;
  Task<> stop() override;

 private:
  std::optional<LedgerlyWebClient> webClient() const;

  AgentContext& context_;
  std::unique_ptr<TaskGroup> ledgerlyPushTask_;
};

}  // namespace vorlane
