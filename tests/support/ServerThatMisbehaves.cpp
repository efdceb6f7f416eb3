#include "support/ServerThatMisbehaves.h"

#include "base/Text.h"

#include <fmt/format.h>
#include <sys/socket.h>
#include <boost/asio/read.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/write.hpp>

#include <chrono>
#include <cstdlib>

namespace vorlane::testing {
namespace {

namespace asio = boost::asio;

std::size_t contentLength(std::string_view head) {
  constexpr std::string_view name = "\r\ncontent-length:";
  const auto lower = asciiLowercased(head);
  const auto at = lower.find(name);
  return at == std::string::npos ? 0 : std::strtoul(lower.c_str() + at + name.size(), nullptr, 10);
}

/// Empty when the client leaves before the request is whole.
std::string readRequest(asio::ip::tcp::socket& connection) {
  std::string request;
  boost::system::error_code error;
  const auto head = asio::read_until(connection, asio::dynamic_buffer(request), "\r\n\r\n", error);
  if (error) return {};
  const auto whole = head + contentLength(std::string_view(request).substr(0, head));
  if (request.size() < whole) {
    const auto missing = asio::transfer_exactly(whole - request.size());
    asio::read(connection, asio::dynamic_buffer(request), missing, error);
  }
  return error ? std::string() : request;
}

}  // namespace

ServerThatMisbehaves::ServerThatMisbehaves(Behaviour behaviour)
    : behaviour_(std::move(behaviour)),
      acceptor_(context_, {asio::ip::address_v4::loopback(), 0}),
      accepting_([this] { acceptAll(); }) {}

ServerThatMisbehaves::~ServerThatMisbehaves() {
  {
    const std::scoped_lock hold(lock_);
    ending_ = true;
    // Ends the calls that block; closing would not.
    ::shutdown(acceptor_.native_handle(), SHUT_RDWR);
    for (auto& connection : connections_) ::shutdown(connection.native_handle(), SHUT_RDWR);
  }
  changed_.notify_all();
  accepting_.join();
  for (auto& thread : threads_) thread.join();
}

std::string ServerThatMisbehaves::url(std::string_view path) const {
  return fmt::format("http://127.0.0.1:{}{}", acceptor_.local_endpoint().port(), path);
}

void ServerThatMisbehaves::acceptAll() {
  for (;;) {
    Socket connection(context_);
    boost::system::error_code error;
    acceptor_.accept(connection, error);
    const std::scoped_lock hold(lock_);
    if (ending_ || error) return;
    auto& kept = connections_.emplace_back(std::move(connection));
    threads_.emplace_back([this, &kept] { serve(kept); });
  }
}

void ServerThatMisbehaves::serve(Socket& connection) {
  auto request = readRequest(connection);
  if (!request.empty()) {
    const auto answer = behaviour_(request);
    {
      const std::scoped_lock hold(lock_);
      requests_.push_back(std::move(request));
    }
    changed_.notify_all();
    act(connection, answer);
  }
  const std::scoped_lock hold(lock_);
  connection.close();
}

void ServerThatMisbehaves::act(Socket& connection, const Answer& answer) {
  if (answer.whenReleased) {
    std::unique_lock hold(lock_);
    changed_.wait(hold, [this] { return released_ || ending_; });
  }
  boost::system::error_code error;
  asio::write(connection, asio::buffer(answer.bytes), error);
  if (answer.end == Answer::End::reset) connection.set_option(Socket::linger(true, 0), error);
  if (answer.end != Answer::End::client) return;
  std::string ignored;
  asio::read(connection, asio::dynamic_buffer(ignored), error);
  const std::scoped_lock hold(lock_);
  ++closed_;
  changed_.notify_all();
}

void ServerThatMisbehaves::release() {
  const std::scoped_lock hold(lock_);
  released_ = true;
  changed_.notify_all();
}

bool ServerThatMisbehaves::waitUntil(const std::function<bool()>& condition) const {
  std::unique_lock hold(lock_);
  return changed_.wait_for(hold, std::chrono::seconds(10), condition);
}

bool ServerThatMisbehaves::waitForRequests(std::size_t count) const {
  return waitUntil([&] { return requests_.size() >= count; });
}

bool ServerThatMisbehaves::waitForClosed(std::size_t count) const {
  return waitUntil([&] { return closed_ >= count; });
}

std::vector<std::string> ServerThatMisbehaves::requests() const {
  const std::scoped_lock hold(lock_);
  return requests_;
}

ServerThatMisbehaves::Answer ServerThatMisbehaves::answer(int status, std::string_view body,
                                                          std::string_view extraHeaders) {
  return {fmt::format("HTTP/1.1 {} Told\r\nContent-Length: {}\r\nConnection: close\r\n{}\r\n{}", status,
                      body.size(), extraHeaders, body)};
}

ServerThatMisbehaves::Answer ServerThatMisbehaves::redirect(int status, std::string_view location) {
  return answer(status, "elsewhere", fmt::format("Location: {}\r\n", location));
}

}  // namespace vorlane::testing
