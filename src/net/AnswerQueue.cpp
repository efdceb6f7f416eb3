#include "net/AnswerQueue.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <iterator>
#include <utility>

namespace vorlane {
namespace {

/// A chunk takes further lines up to this size.
constexpr std::size_t chunkSize = 65536;
constexpr std::size_t chunksAtOnce = 16;

}  // namespace

void AnswerQueue::append(std::string line) {
  bytes_ += line.size();
  if (!chunks_.empty() && chunks_.back().size() + line.size() <= chunkSize) {
    chunks_.back() += line;
  } else {
    chunks_.push_back(std::move(line));
  }
}

void AnswerQueue::take(AnswerQueue& other) {
  if (empty()) {
    std::swap(*this, other);
    return;
  }
  // Nothing of the other has been sent yet: its lines are only being gathered.
  bytes_ += std::exchange(other.bytes_, 0);
  std::ranges::move(other.chunks_, std::back_inserter(chunks_));
  other.chunks_.clear();
}

AnswerQueue::Sending AnswerQueue::send(int socket, std::size_t limit) {
  for (std::size_t sent = 0; !chunks_.empty();) {
    if (sent >= limit) return Sending::more;
    std::array<iovec, chunksAtOnce> parts{};
    const auto count = std::min(chunks_.size(), chunksAtOnce);
    for (std::size_t i = 0; i < count; ++i) parts[i] = {chunks_[i].data(), chunks_[i].size()};
    parts[0] = {chunks_[0].data() + sent_, chunks_[0].size() - sent_};

    msghdr header{};
    header.msg_iov = parts.data();
    header.msg_iovlen = count;
    const auto taken = ::sendmsg(socket, &header, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (taken < 0 && errno == EINTR) continue;
    if (taken < 0) return errno == EAGAIN || errno == EWOULDBLOCK ? Sending::blocked : Sending::failed;
    remove(static_cast<std::size_t>(taken));
    sent += static_cast<std::size_t>(taken);
  }
  return Sending::complete;
}

void AnswerQueue::remove(std::size_t count) {
  bytes_ -= count;
  sent_ += count;
  while (!chunks_.empty() && sent_ >= chunks_.front().size()) {
    sent_ -= chunks_.front().size();
    chunks_.pop_front();
  }
}

}  // namespace vorlane
