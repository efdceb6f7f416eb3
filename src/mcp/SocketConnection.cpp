#include "mcp/SocketConnection.h"

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

using Steady = std::chrono::steady_clock;

constexpr std::size_t readSize = 65536;
/// Bytes of answers that the client may leave untaken, and bytes and number of lines
/// that may wait to be started, before nothing more is read from it.
constexpr std::size_t answerBound = std::size_t{1} << 20;
constexpr std::size_t lineByteBound = std::size_t{1} << 20;
constexpr std::size_t lineBound = 1024;
/// How many of the concurrent executor's threads, which are four at the least, one connection
/// occupies with its lines, and for how long each of them starts lines before others have
/// their turn; a thread of the poller goes on while another is free for those. A call that works without
/// waiting is over when the next is started.
constexpr std::size_t workersAtMost = 3;
constexpr std::chrono::milliseconds timeATurn{2};
/// A call that takes longer than this is not waited for by the lines behind it.
constexpr std::chrono::microseconds longCall{500};
/// How long the answers of a turn are gathered. A send costs as much as a small call, and
/// wakes the client up; and it has something to do while the rest is made.
constexpr std::chrono::microseconds gatheringTime{200};
/// Bytes of answers that are sent before others have their turn.
constexpr std::size_t sentATurn = std::size_t{1} << 20;

/// The connections of a thread read into the same buffer.
std::array<char, readSize>& readBuffer() {
  thread_local std::array<char, readSize> buffer;
  return buffer;
}

}  // namespace

/// A thread's turn with the lines of a connection. The answers that are ready during it are
/// gathered, and sent by the thread itself.
class SocketConnection::Turn {
 public:
  explicit Turn(const SocketConnection& connection) : outer_(std::exchange(current_, &connection)) {}
  ~Turn() { current_ = outer_; }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

  static bool isOn(const SocketConnection& connection) { return current_ == &connection; }
  /// To be told the time after each call.
  void tick() { before_ = std::exchange(now_, Steady::now()); }
  Steady::time_point now() const { return now_; }
  bool isOver() const { return now_ >= end_; }
  bool wasLong() const { return now_ - before_ > longCall; }
  /// True once for each stretch of gathering.
  bool hasGathered() {
    if (now_ < gathered_) return false;
    gathered_ = now_ + gatheringTime;
    return true;
  }

 private:
  static thread_local constinit const SocketConnection* current_;

  const SocketConnection* const outer_;
  Steady::time_point now_ = Steady::now(), before_ = now_;
  const Steady::time_point end_ = now_ + timeATurn;
  Steady::time_point gathered_ = now_ + gatheringTime;
};

thread_local constinit const SocketConnection* SocketConnection::Turn::current_ = nullptr;

SocketConnection::SocketConnection(std::shared_ptr<SocketSettings> settings, FileDescriptor socket)
    : settings_(std::move(settings)), socket_(std::move(socket)) {
  ++settings_->open;
  settings_->reserve->opened();
}

SocketConnection::~SocketConnection() {
  // Only where the poller has let go of it, or could not take it.
  if (!socket_) return;
  --settings_->open;
  settings_->reserve->closed();
}

void SocketConnection::start() {
  bool crowded = false;
  {
    const std::scoped_lock hold(lock_);
    place_ = settings_->reserve->enter(weak_from_this(), DescriptorReserve::Rank::silentAssistant);
    crowded = settings_->reserve->isKeptBack(socket_.get());
    key_ = settings_->poller.add(socket_.get(), shared_from_this(), Poller::Wait::edgesOfBytes);
  }
  if (crowded) settings_->reserve->makeRoom();
}

/// Several threads may be here at once, each with what it has read.
void SocketConnection::ready() {
  if (!goOnSending()) return;
  for (auto reading = Reading::more; reading == Reading::more;) {
    reading = readSome();
    if (reading == Reading::nothing) return;
    if (beginTurn()) runTurn();
  }
}

/// Whether this thread is to run lines: one does, and another when that is held up by a call.
bool SocketConnection::beginTurn() {
  const auto now = Steady::now();
  const std::scoped_lock hold(lock_);
  if (lines_.empty() || (turns_ > 0 && now - lastStart_ < longCall)) return false;
  ++turns_;
  lastStart_ = now;
  return true;
}

void SocketConnection::runTurn() {
  Turn turn(*this);
  for (;;) {
    runLines(turn, false);
    const std::scoped_lock hold(lock_);
    const bool makesWay = turn.isOver() && !settings_->poller.hasThreadToSpare();
    if (!makesWay && !lines_.empty() && mayStart()) continue;
    --turns_;
    return wakeWorkers();
  }
}

/// False when the connection has ended.
bool SocketConnection::goOnSending() {
  {
    const std::scoped_lock hold(lock_);
    if (cut_) close();
    if (!isOpen()) return false;
    if (!std::exchange(blocked_, false)) return true;
    settings_->poller.wait(key_, socket_.get(), Poller::Wait::edgesOfBytes);
  }
  flush();
  return true;
}

SocketConnection::Reading SocketConnection::readSome() {
  auto& buffer = readBuffer();
  const std::scoped_lock hold(lock_);
  if (!isOpen() || paused_) return Reading::nothing;
  ssize_t count = 0;
  do {
    // NOLINTNEXTLINE(clang-analyzer-unix.BlockInCriticalSection): it never waits.
    count = ::recv(socket_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
  } while (count < 0 && errno == EINTR);
  if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return Reading::nothing;
  if (count <= 0) {
    close();
    return Reading::nothing;
  }
  received_.append({buffer.data(), static_cast<std::size_t>(count)});
  takeLines();
  // The end may have come with these bytes, and is then told of no second time.
  return Reading::more;
}

/// Under the lock.
void SocketConnection::takeLines() {
  while (auto line = received_.next()) {
    lineBytes_ += line->size();
    lines_.push_back(*std::move(line));
    place_.reset();
  }
  paused_ = !hasRoom(1);
}

/// Under the lock. Sees to it that as many workers take lines as may and can.
void SocketConnection::wakeWorkers() {
  if (!mayStart()) return;
  for (; workers_ < std::min(lines_.size(), workersAtMost); ++workers_) {
    boost::asio::post(settings_->concurrent, [self = shared_from_this()] { self->work(); });
  }
}

/// Bytes of answers that the client has not taken. Under the lock.
std::size_t SocketConnection::untaken() const {
  return answers_.bytes() + unsent_;
}

/// Under the lock. A line waits while the client leaves too much untaken. When it has
/// gone, what it sent is still carried out.
bool SocketConnection::mayStart() const {
  return untaken() < answerBound || !isOpen();
}

/// A turn on the concurrent executor.
void SocketConnection::work() {
  Turn turn(*this);
  runLines(turn, true);
  const std::scoped_lock hold(lock_);
  if (lines_.empty() || !mayStart()) {
    --workers_;
    return;
  }
  boost::asio::post(settings_->concurrent, [self = shared_from_this()] { self->work(); });
}

/// Starts lines one after another. Most calls read the database where they stand and
/// end before the next is started; one that waits for something goes on by itself.
void SocketConnection::runLines(Turn& turn, bool isWorker) {
  std::string line;
  while (nextLine(turn, line)) {
    startCall(std::move(line));
    turn.tick();
    if (turn.hasGathered()) sendGathered();
    if (turn.isOver() && (isWorker || !settings_->poller.hasThreadToSpare())) break;
  }
  sendGathered();
}

bool SocketConnection::nextLine(const Turn& turn, std::string& line) {
  const std::scoped_lock hold(lock_);
  if (lines_.empty() || !mayStart()) return false;
  line = std::move(lines_.front());
  lines_.pop_front();
  lineBytes_ -= line.size();
  ++callsInFlight_;
  lastStart_ = turn.now();
  slow_ = turn.wasLong();
  if (slow_) wakeWorkers();
  if (paused_) goOn();
  return true;
}

void SocketConnection::startCall(std::string line) {
  MCPRequestContext::startCall(settings_->concurrent, "mcp: socket request",
                               [self = shared_from_this(), line = std::move(line)]() mutable -> Task<> {
                                 auto exchange =
                                     co_await exchangeMessage(self->settings_->server, std::move(line));
                                 if (exchange.isNotification) exchange.answer.clear();
                                 self->finish(std::move(exchange.answer));
                               },
                               {shared_from_this(), &abandoned_});
}

/// Takes the answer of a call, which is empty when the client is to get none.
void SocketConnection::finish(std::string answer) {
  {
    const std::scoped_lock hold(lock_);
    --callsInFlight_;
    if (!isOpen()) return;
    if (!answer.empty() && !abandoned_) answers_.append(std::move(answer += '\n'));
    if (Turn::isOn(*this) || flushing_ || answers_.empty()) return;
    flushing_ = true;
    // Answers of other calls that are ready go with it.
    if (callsInFlight_ > 0 || !lines_.empty()) {
      return boost::asio::post(settings_->concurrent, [self = shared_from_this()] { self->flush(); });
    }
  }
  flush();
}

void SocketConnection::sendGathered() {
  {
    const std::scoped_lock hold(lock_);
    if (!isOpen() || flushing_ || answers_.empty()) return;
    flushing_ = true;
  }
  flush();
}

/// Sends until nothing is left, or the client takes no more. By whoever has set `flushing_`.
void SocketConnection::flush() {
  while (sendOnce()) {
  }
}

/// Whether to go on at once. Sends without the lock, so that others go on gathering meanwhile.
bool SocketConnection::sendOnce() {
  std::unique_lock hold(lock_);
  if (isOpen()) sending_.take(answers_);
  unsent_ = sending_.bytes();
  if (!isOpen() || sending_.empty()) {
    flushing_ = false;
    goOn();
    return false;
  }
  inSend_ = true;
  hold.unlock();
  const auto outcome = sending_.send(socket_.get(), sentATurn);
  hold.lock();
  inSend_ = false;
  if (closing_) {
    close();
    return false;
  }
  if (outcome == AnswerQueue::Sending::failed) {
    // The client takes no answers any more. What it has sent is still read and carried
    // out: the end of that is the connection's.
    abandoned_ = true;
    sending_ = {};
    answers_ = {};
  }
  unsent_ = sending_.bytes();
  if (outcome == AnswerQueue::Sending::blocked) {
    blocked_ = true;
    goOn();
    settings_->poller.wait(key_, socket_.get(), Poller::Wait::edgesOfBytesAndRoom);
    return false;
  }
  if (outcome == AnswerQueue::Sending::more) {
    // Others have their turn before the rest.
    goOn();
    boost::asio::post(settings_->concurrent, [self = shared_from_this()] { self->flush(); });
    return false;
  }
  return true;
}

/// Whether what is piled up is below one part in `parts` of what may be. Under the lock.
bool SocketConnection::hasRoom(std::size_t parts) const {
  return untaken() < answerBound / parts && lines_.size() < lineBound / parts &&
         lineBytes_ < lineByteBound / parts;
}

/// Under the lock, when something has been taken away. Waits until half of the room is
/// free, so that reading does not stop and start with every line.
void SocketConnection::goOn() {
  if (!Turn::isOn(*this)) wakeWorkers();
  if (!paused_ || !hasRoom(2)) return;
  paused_ = false;
  if (isOpen())
    settings_->poller.wait(key_, socket_.get(),
                           blocked_ ? Poller::Wait::edgesOfBytesAndRoom : Poller::Wait::edgesOfBytes);
}

void SocketConnection::cut() {
  const std::scoped_lock hold(lock_);
  if (!isOpen()) return;
  cut_ = true;
  // The poller is told of the end.
  ::shutdown(socket_.get(), SHUT_RDWR);
}

/// Under the lock. Lines that were read run all the same, where they are more than questions.
void SocketConnection::close() {
  if (!socket_) return;
  abandoned_ = true;
  if (inSend_) {
    closing_ = true;
    ::shutdown(socket_.get(), SHUT_RDWR);
    return;
  }
  closing_ = false;
  --settings_->open;
  settings_->reserve->closed();
  if (key_ != 0) settings_->poller.remove(std::exchange(key_, 0), socket_.get());
  socket_.reset();
  place_.reset();
  answers_ = {};
  sending_ = {};
  unsent_ = 0;
  if (!lines_.empty()) wakeWorkers();
}

}  // namespace vorlane
