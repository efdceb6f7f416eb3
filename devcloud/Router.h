#pragma once

#include "base/tasks/Task.h"
#include "devcloud/Message.h"

#include <functional>
#include <string>
#include <vector>

namespace vorlane::devcloud {

/// Which of the two ports serve a route.
enum class Scheme {
  /// HTTPS alone, as in the real cloud.
  secure,
  both,
};

/// The one table from method and path to handler. Filled before the server
/// starts, then read on the server's thread alone.
class Router {
 public:
  using Handler = std::function<Task<Response>(Request)>;
  /// A handler that has nothing to wait for.
  using PlainHandler = std::function<Response(const Request&)>;

  /// `pattern` is a path whose segments may be "{name}"; such a segment matches
  /// anything but an empty one. Of two patterns that match the first wins.
  void add(std::string method, std::string_view pattern, Scheme scheme, Handler handler);
  void add(std::string method, std::string_view pattern, Scheme scheme, PlainHandler handler);

  /// Finds the handler and runs it. What the handler throws becomes a
  /// response: an HTTPError its own, a wrong field 400, anything else 500.
  Task<Response> route(Request request) const;

 private:
  struct Route {
    std::string method;
    std::vector<std::string> segments;
    Scheme scheme;
    Handler handler;
  };

  /// The route, with the request's parameters filled in; throws HTTPError.
  const Route& find(Request& request) const;

  std::vector<Route> routes_;
};

}  // namespace vorlane::devcloud
