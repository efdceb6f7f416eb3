#include "launcher/PendingRequests.h"

#include <iterator>
#include <utility>

namespace vorlane {

std::size_t PendingRequests::cost(const Message& request) {
  // About what the two nodes take beside the texts.
  return 200 + request.id.size() + request.key.size();
}

void PendingRequests::add(Message request) {
  bytes_ += cost(request);
  requests_.push_back(std::move(request));
  byKey_.emplace(requests_.back().key, std::prev(requests_.end()));
}

void PendingRequests::answered(const std::string& key) {
  if (const auto found = byKey_.find(key); found != byKey_.end()) return remove(found->second);
  while (full()) remove(requests_.begin());
}

void PendingRequests::remove(Requests::iterator request) {
  auto [at, end] = byKey_.equal_range(request->key);
  while (at != end && at->second != request) ++at;
  if (at != end) byKey_.erase(at);
  bytes_ -= cost(*request);
  requests_.erase(request);
}

std::vector<std::string> PendingRequests::takeIDs() {
  std::vector<std::string> ids;
  for (auto& request : requests_) ids.push_back(std::move(request.id));
  byKey_.clear();
  requests_.clear();
  bytes_ = 0;
  return ids;
}

}  // namespace vorlane
