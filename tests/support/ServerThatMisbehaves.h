#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace vorlane::testing {

/// A TCP server on 127.0.0.1 that does with each connection what the test has
/// ordered. It reads one HTTP request (head, and a body of its Content-Length),
/// then acts; each connection has a thread of its own.
class ServerThatMisbehaves {
 public:
  /// What a request gets: these bytes, whatever they are, and an end.
  struct Answer {
    enum class End {
      close,
      reset,   ///< cut with a RST
      client,  ///< open until the client closes it
    };
    std::string bytes;
    End end = End::close;
    bool whenReleased = false;  ///< nothing is sent before `release`
  };
  /// Chooses the answer to a request, given its bytes. Runs on the connection's thread.
  using Behaviour = std::function<Answer(std::string_view request)>;

  explicit ServerThatMisbehaves(Behaviour behaviour);
  ~ServerThatMisbehaves();
  ServerThatMisbehaves(const ServerThatMisbehaves&) = delete;
  ServerThatMisbehaves& operator=(const ServerThatMisbehaves&) = delete;

  /// "http://127.0.0.1:PORT" and the path.
  std::string url(std::string_view path = "/") const;
  /// Lets every connection that is held, and those to come, go on.
  void release();
  /// Waits until that many requests have arrived in all; false after ten seconds.
  bool waitForRequests(std::size_t count) const;
  /// Waits until that many clients have closed a connection that was theirs to close.
  bool waitForClosed(std::size_t count) const;
  std::vector<std::string> requests() const;

  static Answer answer(int status, std::string_view body, std::string_view extraHeaders = "");
  static Answer redirect(int status, std::string_view location);
  /// Reads the request and says nothing until the client goes.
  static Answer neverAnswer() { return {.bytes = {}, .end = Answer::End::client}; }

 private:
  using Socket = boost::asio::ip::tcp::socket;

  void acceptAll();
  void serve(Socket& connection);
  void act(Socket& connection, const Answer& answer);
  bool waitUntil(const std::function<bool()>& condition) const;

  const Behaviour behaviour_;
  boost::asio::io_context context_;
  boost::asio::ip::tcp::acceptor acceptor_;

  mutable std::mutex lock_;  // guards what follows, and the closing of a connection
  mutable std::condition_variable changed_;
  std::vector<std::string> requests_;
  std::list<Socket> connections_;
  std::size_t closed_ = 0;
  bool released_ = false;
  bool ending_ = false;

  std::vector<std::thread> threads_;  // the accepting thread's alone, until it ends
  std::thread accepting_;
};

}  // namespace vorlane::testing
