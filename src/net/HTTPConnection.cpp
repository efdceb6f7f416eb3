#include "net/HTTPConnection.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <utility>

namespace vorlane {
namespace {

constexpr std::size_t readSize = 65536;
/// What a client may go on sending after its answer, in time and in bytes,
/// before it is cut off.
constexpr std::chrono::seconds lingerTime{5};
constexpr std::size_t lingerBytes = std::size_t{64} << 20;

/// The connections of a thread read into the same buffer; what they keep is in their parsers.
std::array<char, readSize>& readBuffer() {
  thread_local std::array<char, readSize> buffer;
  return buffer;
}

bool wouldBlock(int error) {
  return error == EAGAIN || error == EWOULDBLOCK;
}

ssize_t receive(int descriptor) {
  auto& buffer = readBuffer();
  for (;;) {
    const auto count = ::recv(descriptor, buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (count >= 0 || errno != EINTR) return count;
  }
}

}  // namespace

HTTPConnection::HTTPConnection(std::shared_ptr<HTTPSettings> settings, FileDescriptor socket)
    : settings_(std::move(settings)), socket_(std::move(socket)) {
  ++settings_->open;
  settings_->reserve->opened();
}

HTTPConnection::~HTTPConnection() {
  close();
}

/// Ends the connection. The count goes down first, so that a client that has
/// seen the end is counted no more.
void HTTPConnection::close() {
  place_.reset();
  deadline_.reset();
  unwatch();
  const std::scoped_lock hold(lock_);
  if (!socket_) return;
  --settings_->open;
  settings_->reserve->closed();
  socket_.reset();
}

void HTTPConnection::cut() {
  const std::scoped_lock hold(lock_);
  if (socket_) ::shutdown(socket_.get(), SHUT_RDWR);
}

/// The poller keeps the connection until this is over. Without a wait the last owner goes,
/// and the connection closes.
void HTTPConnection::waitFor(Poller::Wait what, Step next) {
  const std::scoped_lock hold(lock_);
  next_ = next;
  if (key_ != 0) return settings_->poller.wait(key_, socket_.get(), what);
  key_ = settings_->poller.add(socket_.get(), shared_from_this(), what);
}

void HTTPConnection::ready() {
  Step next = nullptr;
  {
    const std::scoped_lock hold(lock_);
    next = next_;
  }
  (this->*next)();
}

void HTTPConnection::unwatch() {
  Poller::Key key = 0;
  {
    const std::scoped_lock hold(lock_);
    key = std::exchange(key_, 0);
  }
  if (key != 0) settings_->poller.remove(key, socket_.get());
}

void HTTPConnection::read() {
  const auto count = receive(socket_.get());
  if (count < 0 && wouldBlock(errno)) return waitForRequest();
  if (count <= 0) return close();  // a half-sent request gets no answer
  auto request = parser_.feed({readBuffer().data(), static_cast<std::size_t>(count)},
                              [this](const HTTPRequest& head) { return wantsBody(head); });
  if (!request) return waitForRequest();
  take(*std::move(request));
}

bool HTTPConnection::wantsBody(const HTTPRequest& head) {
  settled_ = settings_->answerToHead(head);
  return !settled_;
}

void HTTPConnection::take(HTTPRequest request) {
  place_.reset();
  // From here on it belongs to whoever answers.
  unwatch();
  if (settled_) return answer(*std::move(settled_));
  settings_->serve(shared_from_this(), std::move(request));
}

void HTTPConnection::waitForRequest() {
  const bool first = !place_;
  if (first) {
    place_ = settings_->reserve->enter(weak_from_this(), DescriptorReserve::Rank::incompleteRequest);
  }
  const bool crowded = first && settings_->reserve->isKeptBack(socket_.get());
  const auto self = shared_from_this();
  waitFor(Poller::Wait::onceForBytes, &HTTPConnection::read);
  if (crowded) self->settings_->reserve->makeRoom();
}

void HTTPConnection::answer(HTTPMessage message) {
  message_ = std::move(message);
  sendRest();
}

/// Hands the kernel what it takes of the message.
HTTPConnection::Sending HTTPConnection::sendSome() {
  const auto headSize = message_.head.size();
  const auto total = headSize + message_.body.size();
  while (sent_ < total) {
    std::array<iovec, 2> parts{};
    std::size_t count = 0;
    if (sent_ < headSize) parts[count++] = {message_.head.data() + sent_, headSize - sent_};
    const auto bodySent = sent_ < headSize ? 0 : sent_ - headSize;
    parts[count++] = {message_.body.data() + bodySent, message_.body.size() - bodySent};

    msghdr header{};
    header.msg_iov = parts.data();
    header.msg_iovlen = count;
    const auto taken = ::sendmsg(socket_.get(), &header, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (taken < 0 && errno == EINTR) continue;
    if (taken < 0) return wouldBlock(errno) ? Sending::blocked : Sending::failed;
    sent_ += static_cast<std::size_t>(taken);
  }
  return Sending::complete;
}

void HTTPConnection::sendRest() {
  switch (sendSome()) {
    case Sending::complete:
      return finish();
    case Sending::blocked:
      return waitFor(Poller::Wait::onceForRoom, &HTTPConnection::sendRest);
    case Sending::failed:
      return close();
  }
}

/// Closing a socket that holds unread bytes, or that gets more of them, makes the
/// kernel cut the connection and may destroy the answer on its way. So where the
/// client may send more, its bytes are taken in for a while before the close.
void HTTPConnection::finish() {
  message_ = {};
  clientMaySendMore() ? linger() : close();
}

bool HTTPConnection::clientMaySendMore() const {
  char next = 0;
  const auto count = ::recv(socket_.get(), &next, 1, MSG_PEEK | MSG_DONTWAIT);
  if (count > 0) return true;
  return count < 0 && wouldBlock(errno) && parser_.clientMaySendMore();
}

void HTTPConnection::linger() {
  ::shutdown(socket_.get(), SHUT_WR);
  deadline_.emplace(settings_->io, lingerTime);
  deadline_->async_wait([self = shared_from_this()](boost::system::error_code error) {
    if (!error) self->cut();
  });
  drain();
}

void HTTPConnection::drain() {
  const auto count = receive(socket_.get());
  if (count > 0) drained_ += static_cast<std::size_t>(count);
  const bool open = count > 0 || (count < 0 && wouldBlock(errno));
  if (!open || drained_ > lingerBytes) return close();
  waitFor(Poller::Wait::onceForBytes, &HTTPConnection::drain);
}

}  // namespace vorlane
