// POST /rpc tools/call of ledgerly_list_sheets with ten sheets, against a bare Asio server that accepts,
// reads, answers and closes, in the same run. Both serve 16 connections at a time from a process of its own;
// the bare one sends an answer of the same size and knows nothing.
#include "base/FileDescriptor.h"
#include "bench/LocalAgent.h"

#include <fmt/format.h>
#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/write.hpp>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <thread>
#include <vector>

namespace {

using namespace vorlane;
using boost::asio::ip::tcp;
using Steady = std::chrono::steady_clock;

constexpr int clients = 16;
constexpr int rounds = 6;
constexpr std::chrono::seconds roundLength{2};
std::string request(const std::string& token) {
  const std::string body =
      R"({"jsonrpc":"2.0","id":1,"method":"tools/call","params":{"name":"ledgerly_list_sheets","arguments":{}}})";
  return fmt::format(
      "POST /rpc HTTP/1.1\r\nHost: 127.0.0.1\r\nAuthorization: Bearer {}\r\nContent-Type: "
      "application/json\r\n"
      "Content-Length: {}\r\n\r\n{}",
      token, body.size(), body);
}

/// The floor: one thread, one read, one write, close.
class BareServer {
 public:
  explicit BareServer(std::string answer) : answer_(std::move(answer)) {
    accept();
    thread_ = std::thread([this] { context_.run(); });
  }
  ~BareServer() {
    context_.stop();
    thread_.join();
  }
  std::uint16_t port() const { return acceptor_.local_endpoint().port(); }

 private:
  void accept() {
    acceptor_.async_accept([this](boost::system::error_code error, tcp::socket socket) {
      if (!error) serve(std::make_shared<tcp::socket>(std::move(socket)));
      accept();
    });
  }
  void serve(const std::shared_ptr<tcp::socket>& socket) {
    auto buffer = std::make_shared<std::array<char, 4096>>();
    socket->async_read_some(boost::asio::buffer(*buffer), [this, socket, buffer](auto error, std::size_t) {
      if (error) return;
      boost::asio::async_write(*socket, boost::asio::buffer(answer_), [socket](auto, std::size_t) {});
    });
  }

  std::string answer_;
  boost::asio::io_context context_{1};
  tcp::acceptor acceptor_{context_, tcp::endpoint(boost::asio::ip::address_v4::loopback(), 0)};
  std::thread thread_;
};

FileDescriptor connectTo(std::uint16_t port, int client) {
  FileDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  // An address of its own for each client: closed connections keep their port
  // pair for a minute, and one address would run out of them.
  const int yes = 1;
  ::setsockopt(socket.get(), IPPROTO_IP, IP_BIND_ADDRESS_NO_PORT, &yes, sizeof yes);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK + 1 + static_cast<in_addr_t>(client));
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  if (::bind(socket.get(), generic, sizeof address) != 0) return {};
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  if (::connect(socket.get(), generic, sizeof address) != 0) return {};
  return socket;
}

/// One exchange; the answer is read to the end of the stream.
std::string exchange(std::uint16_t port, int client, const std::string& bytes) {
  const auto socket = connectTo(port, client);
  std::string all;
  if (!socket || ::send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) < 0) return all;
  std::array<char, 16384> piece{};
  for (ssize_t count = 0; (count = ::recv(socket.get(), piece.data(), piece.size(), 0)) > 0;) {
    all.append(piece.data(), static_cast<std::size_t>(count));
  }
  return all;
}

/// In the client process: the times of all exchanges of one round go to `out`.
[[noreturn]] void runClients(std::uint16_t port, const std::string& bytes, std::size_t answerSize, int out) {
  std::vector<std::vector<float>> times(clients);
  std::vector<std::thread> threads;
  const auto end = Steady::now() + roundLength;
  for (int client = 0; client < clients; ++client) {
    threads.emplace_back([&, client] {
      while (Steady::now() < end) {
        const auto start = Steady::now();
        if (exchange(port, client, bytes).size() != answerSize) std::_Exit(1);
        times[static_cast<std::size_t>(client)].push_back(
            std::chrono::duration<float, std::micro>(Steady::now() - start).count());
      }
    });
  }
  for (auto& thread : threads) thread.join();
  for (const auto& each : times) {
    auto rest = std::as_bytes(std::span(each));
    while (!rest.empty()) {
      const auto written = ::write(out, rest.data(), rest.size());
      if (written <= 0) std::_Exit(1);
      rest = rest.subspan(static_cast<std::size_t>(written));
    }
  }
  std::_Exit(0);
}

void measure(std::uint16_t port, const std::string& bytes, std::size_t answerSize,
             std::vector<float>& times) {
  int ends[2];
  if (::pipe(ends) != 0) std::exit(1);
  const pid_t child = ::fork();
  if (child == 0) runClients(port, bytes, answerSize, ends[1]);
  ::close(ends[1]);
  std::string received;
  std::array<char, 65536> piece{};
  for (ssize_t count = 0; (count = ::read(ends[0], piece.data(), piece.size())) > 0;) {
    received.append(piece.data(), static_cast<std::size_t>(count));
  }
  ::close(ends[0]);
  int status = 0;
  ::waitpid(child, &status, 0);
  if (status != 0) {
    fmt::print(stderr, "the clients failed\n");
    std::exit(1);
  }
  const auto old = times.size();
  times.resize(old + received.size() / sizeof(float));
  received.copy(reinterpret_cast<char*>(times.data() + old), received.size());
}

double report(const char* name, std::vector<float>& times) {
  std::ranges::sort(times);
  const double rate = static_cast<double>(times.size()) / static_cast<double>(rounds * roundLength.count());
  const auto at = [&](double share) {
    return times[static_cast<std::size_t>(share * static_cast<double>(times.size() - 1))];
  };
  fmt::print("{:<12} {:>8.0f} requests/s   p50 {:>6.0f} us   p99 {:>6.0f} us\n", name, rate, at(0.5),
             at(0.99));
  return rate;
}

}  // namespace

int main() {
  bench::LocalAgent agent;
  agent.makeSheets(10);
  const auto bytes = request(agent.token());
  const auto answer = exchange(agent.port(), 0, bytes);
  if (!answer.starts_with("HTTP/1.1 200 OK")) {
    fmt::print(stderr, "unexpected answer: {}\n", answer);
    return 1;
  }
  BareServer bare(answer);

  // In turns, so that whatever else the machine does meets both alike.
  std::vector<float> oursTimes, bareTimes;
  for (int round = 0; round < rounds; ++round) {
    measure(bare.port(), bytes, answer.size(), bareTimes);
    measure(agent.port(), bytes, answer.size(), oursTimes);
  }
  const double floor = report("bare Asio", bareTimes);
  const double rate = report("POST /rpc", oursTimes);
  fmt::print("ratio {:.2f} (at least 0.75)\n", rate / floor);
  return rate / floor >= 0.75 ? 0 : 1;
}
