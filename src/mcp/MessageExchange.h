#pragma once

#include "base/tasks/Task.h"
#include "mcp/MCPServer.h"

#include <memory>
#include <string>

namespace vorlane {

/// What became of one message, as every transport needs it.
struct MessageExchange {
  /// The JSON text of the response; empty when not even the failure could be written.
  std::string answer;
  /// The message could not be taken or its response not written: `answer` tells that
  /// with the null id.
  bool failed = false;
  /// The message was carried out and was a request without an id.
  bool isNotification = false;
};

/// Decodes a message, has the server handle it and encodes the response. Does not throw.
Task<MessageExchange> exchangeMessage(std::shared_ptr<MCPServer> server, std::string message);

}  // namespace vorlane
