#pragma once

#include "base/tasks/Task.h"
#include "control/ControlCommands.h"
#include "control/ControlServer.h"

#include <boost/asio/local/stream_protocol.hpp>

#include <memory>
#include <string>

namespace vorlane {

/// What every connection needs, shared so that it outlives the server.
struct ControlSettings {
  Executor concurrent;
  ControlCommands commands;
  ControlServer::Limits limits;
};

/// The last line of an answer, with its newline, for a request that is refused.
std::string controlRefusal(std::string error);

/// Serves one connection to its end. Runs on a strand of the I/O executor; cancelling it
/// closes the socket and cancels the command that runs.
Task<> serveControlConnection(std::shared_ptr<const ControlSettings> settings,
                              std::shared_ptr<boost::asio::local::stream_protocol::socket> socket);

}  // namespace vorlane
