#pragma once

#include "launcher/AgentConnection.h"
#include "launcher/AnswerBuffer.h"
#include "launcher/MessageScanner.h"
#include "launcher/PendingRequests.h"
#include "launcher/StandardOutput.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>

namespace vorlane {

/// Passes lines between a client's two streams and the agent's socket, in one
/// thread that sleeps in poll(2) until one of them has something.
///
/// - Lines of the client go on as they come in, in pieces; lines of the agent
///   once they are whole.
/// - When one side takes nothing, the other is not read: beside the one unfinished
///   line of the agent, some 64 KB wait in each direction.
/// - While no agent is there, requests are answered with an error, each under its
///   own id; nothing else is answered. There is no attempt to connect but for a line
///   that waits to be sent.
/// - A line of which the agent has been sent a part is not sent to another.
class Relay {
 public:
  /// The descriptors stay the caller's.
  Relay(int input, int output, Paths paths);

  /// Returns at the end of input, or when nobody reads the output any more.
  void run();

 private:
  using Clock = std::chrono::steady_clock;

  // The client's side.
  bool wantsInput() const;
  void readInput();
  void clientLeft();
  std::string_view input() const { return {room_.get() + begin_, end_ - begin_}; }
  std::optional<Message> passInput(std::size_t count);

  // The agent's side.
  void deliver();
  bool reach();
  void sendInput();
  void receive();
  void lost();

  // Without an agent.
  void refuseInput();
  void refuse(const Message& message);

  bool print();
  void moved();
  void sayWhatIsLeft() const;
  bool wait();
  int timeout() const;
  bool finished() const;

  const int input_;
  StandardOutput output_;
  AgentConnection agent_;
  AnswerBuffer answers_;
  PendingRequests pending_;

  /// What was read and not yet passed on lies in `room_` from `begin_` to `end_`.
  std::unique_ptr<char[]> room_;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  /// Has seen exactly what left `room_`.
  MessageScanner scanner_;
  /// The beginning of this line was lost with a connection: its rest goes nowhere.
  bool cut_ = false;

  /// The agent takes nothing more, but may have left answers behind.
  bool sendingEnded_ = false;
  /// Something went over this connection.
  bool used_ = false;
  /// The person has been shown that the agent is away.
  bool away_ = false;
  Clock::time_point nextAttempt_;
  /// Until then a line waits for the agent to come (back), with pauses between
  /// the attempts; later each line that comes makes one.
  Clock::time_point patience_;
  /// Set once the input has ended: when to end, even with answers missing, unless something moves.
  std::optional<Clock::time_point> deadline_;
  /// The client has gone; and everything that it wrote was read.
  bool hungUp_ = false;
  bool inputEnded_ = false;
};

}  // namespace vorlane
