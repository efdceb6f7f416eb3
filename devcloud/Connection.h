#pragma once

#include "base/tasks/Task.h"
#include "devcloud/Certificates.h"
#include "devcloud/Message.h"

#include <boost/asio/ip/tcp.hpp>

#include <functional>
#include <memory>

namespace vorlane::devcloud {

/// The server's side of TLS; hides its library from its users.
struct TLSContext;

/// Throws Failure when the certificates do not fit.
std::unique_ptr<TLSContext, void (*)(TLSContext*)> makeTLSContext(const Certificates& certificates);

using RequestHandler = std::function<Task<Response>(Request)>;

/// Serves one connection until either side closes it. Failures of the connection
/// end it silently; the context and the handler outlive it.
Task<> serveSecure(boost::asio::ip::tcp::socket socket, TLSContext& context, const RequestHandler& handler);
Task<> servePlain(boost::asio::ip::tcp::socket socket, const RequestHandler& handler);

}  // namespace vorlane::devcloud
