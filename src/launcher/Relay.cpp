#include "launcher/Relay.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <utility>

namespace vorlane {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t roomSize = 65536;

/// A line that comes so soon after the start, or after the agent went away,
/// waits for it to come: clients and agent are started together, and an agent
/// that restarts is back in well under a second. Later the answer is immediate.
constexpr auto patience = 2s;
constexpr auto pauseBetweenAttempts = 25ms;

/// How long after the end of input, or after anything moved since, answers are waited
/// for. Clients that close the input wait about two seconds before they use force;
/// requests from a pipe should still be answered, however many they are.
constexpr auto patienceAfterInput = 1s;

constexpr char agentAbsent[] =
    R"("code":-32603,"message":"The Vorlane agent is not running. Open Vorlane, then try again.")";
constexpr char notAnObject[] = R"("code":-32700,"message":"not a JSON object")";

/// `reason` comes with JSON's escapes, and stays so.
std::string agentRefuses(const std::string& reason) {
  return R"("code":-32603,"message":"The Vorlane agent runs, but does not serve assistants: )" + reason +
         "\"";
}

std::string errorLine(std::string_view error, std::string_view id) {
  std::string line = R"({"error":{)";
  line.append(error).append(R"(},"id":)").append(id).append(R"(,"jsonrpc":"2.0"})").append("\n");
  return line;
}

bool wouldWait(int error) {
  return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

}  // namespace

Relay::Relay(int input, int output, Paths paths)
    : input_(input),
      output_(output),
      agent_(std::move(paths)),
      room_(std::make_unique_for_overwrite<char[]>(roomSize)),
      patience_(Clock::now() + patience) {}

void Relay::run() {
  do {
    deliver();
    if (!print()) return;
    if (finished()) return sayWhatIsLeft();
  } while (wait());
}

void Relay::sayWhatIsLeft() const {
  if (!pending_.empty() || input().contains('\n') || !answers_.ready().empty()) {
    notice("ended before every request was answered, since nothing moved any more");
  }
}

/// Bytes went on in some direction.
void Relay::moved() {
  if (deadline_) deadline_ = Clock::now() + patienceAfterInput;
}

bool Relay::finished() const {
  if (!deadline_) return false;
  if (Clock::now() >= *deadline_) return true;
  // A last line without its newline is no message.
  const bool sent =
      inputEnded_ && (cut_ || !agent_.connected() || input().empty()) && !input().contains('\n');
  return sent && pending_.empty() && answers_.ready().empty();
}

bool Relay::wait() {
  const bool hears = agent_.connected() && !answers_.full();
  const bool sends = agent_.connected() && !sendingEnded_ && !input().empty();
  const auto agentEvents = static_cast<short>((hears ? POLLIN : 0) | (sends ? POLLOUT : 0));
  // A descriptor that nothing is wanted of is left out, since its end would be reported
  // again and again; but the input's end is to be heard once, also while nothing is read.
  const bool reads = wantsInput();
  pollfd watched[] = {{reads || !hungUp_ ? input_ : -1, static_cast<short>(reads ? POLLIN : 0), 0},
                      {output_.descriptor(), static_cast<short>(answers_.ready().empty() ? 0 : POLLOUT), 0},
                      {agentEvents != 0 ? agent_.descriptor() : -1, agentEvents, 0}};
  if (::poll(watched, std::size(watched), timeout()) < 0) return errno == EINTR;
  if ((watched[1].revents & (POLLERR | POLLHUP | POLLNVAL)) != 0) return false;
  if (watched[0].revents != 0) reads ? readInput() : clientLeft();
  if (hears && (watched[2].revents & ~POLLOUT) != 0) receive();
  return true;
}

int Relay::timeout() const {
  auto until = deadline_.value_or(Clock::time_point::max());
  const auto now = Clock::now();
  if (!agent_.connected() && !cut_ && !input().empty() && now < patience_) {
    until = std::min({until, nextAttempt_, patience_});
  }
  if (until == Clock::time_point::max()) return -1;
  return static_cast<int>(std::max(std::chrono::ceil<std::chrono::milliseconds>(until - now), 0ms).count());
}

// Half of the room at least is then free, so that moving what is left to its
// front costs no more than reading.
bool Relay::wantsInput() const {
  return !inputEnded_ && input().size() <= roomSize / 2 && !pending_.full();
}

void Relay::readInput() {
  std::copy(room_.get() + begin_, room_.get() + end_, room_.get());
  end_ -= std::exchange(begin_, 0);
  const auto count = ::read(input_, room_.get() + end_, roomSize - end_);
  if (count > 0) {
    end_ += static_cast<std::size_t>(count);
    moved();
  } else if (count == 0 || !wouldWait(errno)) {
    inputEnded_ = true;
    clientLeft();
  }
}

/// Nothing more will come but what is in the pipe already.
void Relay::clientLeft() {
  hungUp_ = true;
  deadline_ = Clock::now() + patienceAfterInput;
  patience_ = std::min(patience_, *deadline_);
}

/// Takes bytes off the input, `count` at most, but no more than to the end of the
/// line, and returns the message when that was reached.
std::optional<Message> Relay::passInput(std::size_t count) {
  const auto bytes = input().substr(0, count);
  const auto newline = bytes.find('\n');
  scanner_.feed(bytes.substr(0, newline));
  if (newline == std::string_view::npos) {
    begin_ += bytes.size();
    return std::nullopt;
  }
  begin_ += newline + 1;
  return scanner_.finish();
}

void Relay::deliver() {
  if (cut_) refuseInput();
  if (input().empty() || cut_) return;
  if (agent_.connected() || reach()) return sendInput();
  if (Clock::now() >= patience_) refuseInput();
}

bool Relay::reach() {
  const auto now = Clock::now();
  if (now < std::min(nextAttempt_, patience_)) return false;
  nextAttempt_ = now + pauseBetweenAttempts;
  if (!agent_.connect()) return false;
  sendingEnded_ = used_ = false;
  if (std::exchange(away_, false)) notice("connected to the Vorlane agent");
  return true;
}

void Relay::sendInput() {
  while (!sendingEnded_ && !input().empty()) {
    const auto count = agent_.send(input());
    if (count < 0) {
      if (wouldWait(errno)) return;
      // The end of what it sent shows when the agent is gone.
      sendingEnded_ = true;
      return;
    }
    used_ = true;
    moved();
    for (auto left = static_cast<std::size_t>(count); left > 0;) {
      const auto before = begin_;
      auto message = passInput(left);
      left -= begin_ - before;
      if (message && message->kind == Message::Kind::request) pending_.add(std::move(*message));
    }
  }
}

void Relay::receive() {
  const auto count =
      answers_.receive([this](char* room, std::size_t size) { return agent_.receive(room, size); },
                       [this](std::string_view line) {
                         if (!pending_.empty() && line.size() > 1) pending_.answered(answeredKey(line));
                       });
  if (count > 0) {
    used_ = true;
    moved();
  } else if (count == 0 || !wouldWait(errno)) {
    lost();
  }
}

void Relay::lost() {
  agent_.close();
  answers_.dropUnfinished();
  if (!std::exchange(away_, true)) notice("the connection to the Vorlane agent is lost");
  for (const auto& id : pending_.takeIDs()) answers_.add(errorLine(agentAbsent, id));
  cut_ = scanner_.midLine();
  const auto now = Clock::now();
  // What hangs up on everybody at once would else be tried for ever.
  if (used_) patience_ = std::min(now + patience, deadline_.value_or(Clock::time_point::max()));
  if (now >= patience_) refuseInput();
}

/// Answers for the lines in the input, or for the rest of the line that is cut.
void Relay::refuseInput() {
  const bool restOnly = cut_;
  while (!input().empty() && !answers_.full()) {
    const auto message = passInput(input().size());
    cut_ = scanner_.midLine();
    if (message) refuse(*message);
    if (message && restOnly) return;
  }
}

void Relay::refuse(const Message& message) {
  if (message.kind == Message::Kind::malformed) answers_.add(errorLine(notAnObject, "null"));
  if (message.kind != Message::Kind::request) return;
  const auto reason = agent_.reasonOfAgent();
  if (!std::exchange(away_, true)) {
    notice(reason.empty() ? "the Vorlane agent is not running (" + agent_.reason() + ")"
                          : "the Vorlane agent does not serve assistants: " + reason);
  }
  answers_.add(errorLine(reason.empty() ? agentAbsent : agentRefuses(reason), message.id));
}

/// False when nobody reads any more.
bool Relay::print() {
  while (!answers_.ready().empty()) {
    const auto count = output_.write(answers_.ready());
    if (count < 0) return wouldWait(errno);
    answers_.printed(static_cast<std::size_t>(count));
    moved();
  }
  return true;
}

}  // namespace vorlane
