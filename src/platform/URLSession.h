#pragma once

#include "base/Failure.h"
#include "base/tasks/Task.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vorlane {

/// The request could not be sent or its answer not received. Domain "URLSession".
class TransportFailure : public DomainFailure {
 public:
  TransportFailure(long code, std::string description)
      : DomainFailure("URLSession", code, std::move(description)) {}
};

struct URLRequest {
  std::string method = "GET";
  std::string url;
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;
  /// For the whole exchange, from the first byte sent to the last received.
  std::chrono::milliseconds timeout{60'000};
  /// How long nothing may move, in either direction; in whole seconds, 0 for as long as the
  /// exchange may take.
  std::chrono::seconds idleTimeout{0};
  /// Sent again, once, when a connection that has been kept open turns out to be closed before
  /// any answer has come. Off for what a server must not do twice, since it may have acted on
  /// the first.
  bool retryOnStaleConnection = true;
  /// Follow redirects to http and https addresses. The final address is reported
  /// in the response; "Authorization" goes only to the first host.
  bool followRedirects = true;
  /// An answer's body beyond this many bytes fails the request.
  std::size_t maximumBody = std::size_t{64} << 20;
};

struct URLResponse {
  int status = 0;
  /// The address that the answer came from, after any redirects.
  std::string url;
  /// In the order received, of the final answer; names as sent.
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;
  /// The body's part of what a session lets all answers take together, which is given back when
  /// the last copy goes; null where nobody counts. Keep it with a body that is moved on.
  std::shared_ptr<const void> memory;

  /// The first header of that name, whatever its letter case.
  std::optional<std::string> header(std::string_view name) const;
};

/// Runs one request. Throws TransportFailure, or the cancellation of the task,
/// which cuts the transfer. What everything that needs the network is handed.
using NetworkRunner = std::function<Task<URLResponse>(URLRequest)>;

/// HTTP and HTTPS for the whole process. No cookies are kept or sent, nothing is
/// cached, any number of requests run at once. Bodies that arrive or are still held take
/// 128 MiB at most together: beyond that the longest of those that arrive fails. Callable from any thread and
/// any executor; it has to outlive the requests.
class URLSession {
 public:
  virtual ~URLSession() = default;
  virtual Task<URLResponse> send(URLRequest request) = 0;
};

}  // namespace vorlane
