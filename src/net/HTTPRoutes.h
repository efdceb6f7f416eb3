#pragma once

#include "base/tasks/Task.h"
#include "net/HTTPMessage.h"
#include "net/HTTPRequest.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vorlane {

/// What answers the requests to one path and all below it.
class HTTPRoute {
 public:
  virtual ~HTTPRoute() = default;
  /// The answer to a request that its head alone decides, whatever its body will be; the
  /// body is then not kept. Asked when only the head has come, which still has no body.
  virtual std::optional<HTTPMessage> answerToHead(const HTTPRequest& /*head*/) { return std::nullopt; }
  /// Runs once for each request, many at a time, first on the thread that read it and after
  /// a wait on the concurrent executor. The path still
  /// holds the query. The caller keeps the route alive. What is thrown is answered by 500.
  virtual Task<HTTPMessage> answer(HTTPRequest request) = 0;
};

/// The table of the paths that are served. Filled before it is first asked, then
/// callable from any thread.
class HTTPRoutes {
 public:
  /// Serves `prefix`, which begins with a slash and ends without one, and every path
  /// that goes on with a slash behind it. The prefixes of a table do not overlap.
  void add(std::string prefix, std::shared_ptr<HTTPRoute> route);

  /// What the head alone decides: see HTTPRoute. Does not throw.
  std::optional<HTTPMessage> answerToHead(const HTTPRequest& head) const;
  /// Never throws: every failure is an answer; a path that nobody serves is not found.
  Task<HTTPMessage> answer(HTTPRequest request) const;

 private:
  std::shared_ptr<HTTPRoute> routeTo(std::string_view path) const;

  std::vector<std::pair<std::string, std::shared_ptr<HTTPRoute>>> routes_;
};

/// What a path that is not served is answered.
HTTPMessage notFoundMessage();

}  // namespace vorlane
