#pragma once

#include "AgentProcess.h"
#include "devcloud/AILists.h"
#include "devcloud/DevCloud.h"
#include "devcloud/Faults.h"
#include "devcloud/Identity.h"
#include "devcloud/People.h"
#include "devcloud/Projects.h"
#include "devcloud/RequestLog.h"
#include "devcloud/Sheets.h"

namespace vorlane::test {

using devcloud::AILists, devcloud::Fault, devcloud::FaultCut, devcloud::Faults;
using devcloud::Projects, devcloud::RequestLog, devcloud::Sheets;

/// The real agent beside the real local cloud, each in a folder of the test.
class Spine {
 public:
  /// Starts the cloud; the agent waits for `start`.
  Spine();

  /// Puts a person into the cloud.
  void person(const std::string& sub, bool access);
  /// Plants the person's tokens in the agent's vault, as the sign-in would, and
  /// announces the change as any process of the suite does.
  void signIn(const std::string& sub, std::optional<std::int64_t> lifetime = std::nullopt);
  void signOut();
  void announce(const std::string& signal);

  /// Starts the agent for somebody who is signed in with access, and waits until it serves.
  void startServing(const std::string& sub = "auth0|ana");
  JSONMap status() const;
  /// Waits until `POST /rpc` with the right token answers with this status.
  bool eventuallyAnswers(int status);

  JSONMap call(const std::string& tool, JSONMap arguments = {});
  /// The tool's own result; throws when it is an error.
  JSONMap result(const std::string& tool, JSONMap arguments = {});

  std::filesystem::path vaultFile() const {
    return agent.container() / "vault/com.vorlane.auth/auth0-tokens";
  }

  TemporaryFolder folder;
  devcloud::DevCloud cloud;
  AgentProcess agent;
  std::string token;
};

inline constexpr std::string_view listTools = R"({"jsonrpc":"2.0","id":1,"method":"tools/list"})";

}  // namespace vorlane::test
