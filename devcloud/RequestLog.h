#pragma once

#include "base/Date.h"
#include "base/JSON.h"
#include "base/tasks/Event.h"
#include "base/tasks/Task.h"
#include "devcloud/Message.h"
#include "devcloud/Service.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace vorlane::devcloud {

/// A request that arrived, as tests may see it.
struct RecordedRequest {
  /// Counts from 1 over the server's life; clearing does not restart it.
  std::int64_t number = 0;
  Date at;
  std::string method;
  std::string path;
  std::string query;
  /// As they came; the token of "Authorization" is replaced by tokenDigest.
  Headers headers;
  /// The first MiB of it.
  std::string body;
  bool secure = false;

  std::optional<std::string> header(std::string_view name) const;
  /// A body that is not UTF-8 appears under "bodyBase64" in place of "body".
  JSONMap json() const;
};

/// What stands in a recorded "Authorization" for a token: "sha256:" and 16 digits.
std::string tokenDigest(std::string_view token);

/// Which of the recorded requests are meant; an empty part means any.
struct RequestFilter {
  std::string method;
  std::string path;

  bool matches(const RecordedRequest& request) const;
};

/// What arrived, control requests aside: the latest thousand, and no more than 64 MiB of bodies.
/// To read it:
///
///   GET    requests ?method ?path    {"requests": [...]}, headers included; with ?atLeast=N it waits
///                                    until so many have arrived, ?timeoutMs (5000) at the longest
///   DELETE requests
class RequestLog : public Service {
 public:
  void addRoutes(Router& router) override;

  void record(const Request& request, Date at);
  std::vector<RecordedRequest> find(const RequestFilter& filter) const;
  void clear();

  /// Waits until `count` matching requests lie in the log and gives them all.
  /// Throws TimeoutFailure, which says how many there were, after `limit`.
  Task<std::vector<RecordedRequest>> waitFor(RequestFilter filter, std::size_t count,
                                             std::chrono::milliseconds limit);

 private:
  Task<Response> answer(Request request);

  std::deque<RecordedRequest> requests_;
  std::size_t bodyBytes_ = 0;
  std::int64_t nextNumber_ = 1;
  /// Set, and replaced, with each arrival.
  std::shared_ptr<Event> arrival_ = std::make_shared<Event>();
};

}  // namespace vorlane::devcloud
