#pragma once

#include "access/ProfileSyncer.h"
#include "mcp/MCPLifecycle.h"
#include "shell/AgentContext.h"
#include "shell/Service.h"

#include <string>

namespace vorlane {

class Contributions;

/// Serves assistants: the MCP lifecycle, and the syncer that switches it by the person's access.
class MCPService final : public Service {
 public:
  /// `all` is what every service contributes; it is read at each start of the server.
  MCPService(AgentContext& context, const Contributions& all) : context_(context), all_(all) {}

  std::string_view name() const override { return "MCP server"; }
  void contribute(Contributions& to) override;
  bool needsStore() const override { return true; }
  void start() override;
  Task<> stop() override;

 private:
  Task<> startLifecycle();
  Task<> startSyncer();
  MCPLifecycle::Environment environment() const;
  JSONMap status() const;
  std::string reasonNotToServe() const;

  AgentContext& context_;
  const Contributions& all_;
  MCPLifecycle lifecycle_;
  ProfileSyncer syncer_;
  bool started_ = false;
};

}  // namespace vorlane
