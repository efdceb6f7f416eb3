#include "mcp/SocketConnection.h"

#include "base/tasks/Spawn.h"
#include "mcp/MCPRequestContext.h"
#include "mcp/MessageExchange.h"

#include <boost/asio/post.hpp>

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <utility>

namespace vorlane {
namespace {

using boost::asio::posix::stream_descriptor;

constexpr std::size_t readSize = 65536;
/// Bytes of answers that the client may leave untaken, and bytes and number of lines
/// that may wait to be started, before nothing more is read from it.
constexpr std::size_t answerBound = std::size_t{1} << 20;
constexpr std::size_t lineByteBound = std::size_t{1} << 20;
constexpr std::size_t lineBound = 1024;
/// How many of the concurrent executor's threads, which are four at the least, one connection
/// occupies with starting its lines; and how many lines each starts, and for how long, before
/// others have their turn. A call that works without waiting is over when the next is started.
constexpr std::size_t workersAtMost = 3;
constexpr int linesATurn = 16;
constexpr std::chrono::milliseconds timeATurn{2};
/// Bytes of answers that a worker sends by itself, and that the I/O thread sends before
/// others have their turn.
constexpr std::size_t sentAtOnce = 65536;
constexpr std::size_t sentATurn = std::size_t{1} << 20;

/// Every connection reads into the same buffer, since all of them read on the one I/O thread.
std::array<char, readSize>& readBuffer() {
  thread_local std::array<char, readSize> buffer;
  return buffer;
}

}  // namespace

SocketConnection::SocketConnection(std::shared_ptr<SocketSettings> settings, FileDescriptor socket)
    : settings_(std::move(settings)), socket_(settings_->io, socket.get()) {
  socket.release();
  ++settings_->open;
}

// Whatever still waits here was dropped by an executor that has ended.
SocketConnection::~SocketConnection() {
  if (socket_.is_open()) --settings_->open;
}

void SocketConnection::read() {
  // Nobody closes the socket but this thread.
  if (!socket_.is_open()) return;
  auto& buffer = readBuffer();
  const auto count = ::recv(socket_.native_handle(), buffer.data(), buffer.size(), MSG_DONTWAIT);
  if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) return waitToRead();
  if (count <= 0) return close();
  take({buffer.data(), static_cast<std::size_t>(count)});

  std::unique_lock hold(lock_);
  paused_ = !hasRoom(1);
  if (paused_) return;
  hold.unlock();
  if (static_cast<std::size_t>(count) < readSize) return waitToRead();
  // There is more; others have their turn in between.
  boost::asio::post(settings_->io, [self = shared_from_this()] { self->read(); });
}

void SocketConnection::waitToRead() {
  const std::scoped_lock hold(lock_);
  socket_.async_wait(stream_descriptor::wait_read,
                     [self = shared_from_this()](boost::system::error_code error) {
                       if (!error) self->read();
                     });
}

void SocketConnection::take(std::string_view bytes) {
  received_.append(bytes);
  std::deque<std::string> lines;
  while (auto line = received_.next()) lines.push_back(*std::move(line));
  if (lines.empty()) return;

  const std::scoped_lock hold(lock_);
  for (auto& line : lines) {
    lineBytes_ += line.size();
    lines_.push_back(std::move(line));
  }
  wakeWorkers();
}

/// Under the lock. Sees to it that as many workers take lines as may and can.
void SocketConnection::wakeWorkers() {
  if (!mayStart()) return;
  for (; workers_ < std::min(lines_.size(), workersAtMost); ++workers_) {
    boost::asio::post(settings_->concurrent, [self = shared_from_this()] { self->runLines(); });
  }
}

/// Bytes of answers that the client has not taken. Under the lock.
std::size_t SocketConnection::untaken() const {
  return answers_.bytes() + unsent_;
}

/// Under the lock. A line waits while the client leaves too much untaken. When it has
/// gone, what it sent is still carried out.
bool SocketConnection::mayStart() const {
  return untaken() < answerBound || !socket_.is_open();
}

/// Starts lines one after another. Most calls read the database where they stand and
/// end before the next is started; one that waits for something goes on by itself.
void SocketConnection::runLines() {
  using Steady = std::chrono::steady_clock;
  const auto end = Steady::now() + timeATurn;
  for (int count = 0; count == 0 || (count < linesATurn && Steady::now() < end); ++count) {
    std::string line;
    if (!nextLine(line)) return;
    spawn(MCPRequestContext::executorForCall(settings_->concurrent), "mcp: socket request",
          [self = shared_from_this(), line = std::move(line)]() mutable -> Task<> {
            auto exchange = co_await exchangeMessage(self->settings_->server, std::move(line));
            if (exchange.isNotification) exchange.answer.clear();
            self->finish(std::move(exchange.answer));
          });
  }
  boost::asio::post(settings_->concurrent, [self = shared_from_this()] { self->runLines(); });
}

bool SocketConnection::nextLine(std::string& line) {
  const std::scoped_lock hold(lock_);
  if (lines_.empty() || !mayStart()) {
    --workers_;
    return false;
  }
  line = std::move(lines_.front());
  lines_.pop_front();
  lineBytes_ -= line.size();
  ++callsInFlight_;
  if (paused_) goOn();
  return true;
}

/// Takes the answer of a call, which is empty when the client is to get none.
void SocketConnection::finish(std::string answer) {
  const std::scoped_lock hold(lock_);
  --callsInFlight_;
  if (!socket_.is_open()) return;
  if (!answer.empty() && !deaf_) answers_.append(std::move(answer += '\n'));
  if (flushing_ || answers_.empty()) return;
  // The last answer goes out at once, unless that would take long. Others are gathered
  // while the I/O thread comes to it, since a send costs as much as a small call.
  const bool last = callsInFlight_ == 0 && lines_.empty() && answers_.bytes() <= sentAtOnce;
  if (last && answers_.send(socket_.native_handle(), sentAtOnce) == AnswerQueue::Sending::complete)
    return goOn();
  flushing_ = true;
  boost::asio::post(settings_->io, [self = shared_from_this()] { self->flush(); });
}

/// On `io`. Only this thread closes the socket, so it sends without the lock, and the
/// workers go on gathering meanwhile.
void SocketConnection::flush() {
  if (!socket_.is_open()) return;
  {
    const std::scoped_lock hold(lock_);
    sending_.take(answers_);
    unsent_ = sending_.bytes();
    flushing_ = !sending_.empty();
    if (!flushing_) return goOn();
  }
  const auto outcome = sending_.send(socket_.native_handle(), sentATurn);
  // The client takes no answers any more. What it has sent is still read and carried
  // out: the end of that is the connection's.
  if (outcome == AnswerQueue::Sending::failed) sending_ = {};

  const std::scoped_lock hold(lock_);
  unsent_ = sending_.bytes();
  if (outcome == AnswerQueue::Sending::failed) {
    deaf_ = true;
    answers_ = {};
  }
  goOn();
  if (outcome == AnswerQueue::Sending::blocked) {
    return socket_.async_wait(stream_descriptor::wait_write,
                              [self = shared_from_this()](boost::system::error_code error) {
                                if (!error) self->flush();
                              });
  }
  // Others have their turn before the rest.
  boost::asio::post(settings_->io, [self = shared_from_this()] { self->flush(); });
}

/// Whether what is piled up is below one part in `parts` of what may be. Under the lock.
bool SocketConnection::hasRoom(std::size_t parts) const {
  return untaken() < answerBound / parts && lines_.size() < lineBound / parts &&
         lineBytes_ < lineByteBound / parts;
}

/// Under the lock, when something has been taken away. Waits until half of the room is
/// free, so that reading does not stop and start with every line.
void SocketConnection::goOn() {
  wakeWorkers();
  if (!paused_ || !hasRoom(2)) return;
  paused_ = false;
  boost::asio::post(settings_->io, [self = shared_from_this()] { self->read(); });
}

void SocketConnection::cut() {
  const std::scoped_lock hold(lock_);
  if (!socket_.is_open()) return;
  ::shutdown(socket_.native_handle(), SHUT_RDWR);
  boost::asio::post(settings_->io, [self = shared_from_this()] { self->close(); });
}

/// On `io`. Lines that were read run all the same.
void SocketConnection::close() {
  const std::scoped_lock hold(lock_);
  if (!socket_.is_open()) return;
  --settings_->open;
  boost::system::error_code ignored;
  socket_.close(ignored);
  answers_ = {};
  sending_ = {};
  unsent_ = 0;
  if (!lines_.empty()) wakeWorkers();
}

}  // namespace vorlane
