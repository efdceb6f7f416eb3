#pragma once

#include "launcher/MessageScanner.h"

#include <cstddef>
#include <list>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace vorlane {

/// The requests that the agent has been sent and has not answered, in the order
/// in which they were sent.
class PendingRequests {
 public:
  void add(Message request);
  /// The agent has sent an answer with this key. When no request has it, the
  /// agent could not read a line, and answers it as null; its request may be
  /// waiting here for ever, so the oldest are given up, but only once this is full.
  void answered(const std::string& key);
  /// No further request should be sent until some are answered.
  bool full() const { return bytes_ >= limit; }
  bool empty() const { return requests_.empty(); }
  /// Takes out all ids as they were written, the oldest first.
  std::vector<std::string> takeIDs();

 private:
  /// Of memory; some thousands of usual requests.
  static constexpr std::size_t limit = std::size_t{1} << 20;

  using Requests = std::list<Message>;
  static std::size_t cost(const Message& request);
  void remove(Requests::iterator request);

  Requests requests_;
  /// The views are into the requests' own keys. An id may be in use twice.
  std::unordered_multimap<std::string_view, Requests::iterator> byKey_;
  std::size_t bytes_ = 0;
};

}  // namespace vorlane
