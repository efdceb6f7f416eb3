#include "platform/linux/RouteMonitor.h"

#include "base/Failure.h"
#include "base/FileDescriptor.h"
#include "base/ShellLog.h"
#include "platform/linux/RouteMessages.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <mutex>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

namespace vorlane {

namespace asio = boost::asio;

namespace {

/// Links and addresses beside routes: the kernel does not report the IPv4 routes that go
/// with a link or an address.
constexpr unsigned watchedGroups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_ROUTE;

/// From a change to the look at it. A link that goes down is reported before its routes have gone.
constexpr std::chrono::milliseconds settling{100};
/// Until the next try when the kernel would not take a question.
constexpr std::chrono::seconds patience{5};

/// The longest datagram in which the kernel answers a dump, in bytes.
constexpr std::size_t longestAnswer = 32768;
/// Datagrams that are read in one go, so that a long table leaves the thread to others.
constexpr int answersAtOnce = 16;

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

/// The kernel's own address, as which it must speak and is spoken to.
sockaddr_nl netlinkAddress(unsigned groups = 0) {
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  address.nl_groups = groups;
  return address;
}

sockaddr* generic(sockaddr_nl& address) {
  return reinterpret_cast<sockaddr*>(&address);
}

/// A socket that hears of every change, and the port that the kernel has given it.
std::pair<FileDescriptor, std::uint32_t> openRouteSocket() {
  FileDescriptor fd(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE));
  if (!fd) fail("The routes cannot be watched");
  auto address = netlinkAddress(watchedGroups);
  socklen_t length = sizeof address;
  if (::bind(fd.get(), generic(address), length) != 0 ||
      ::getsockname(fd.get(), generic(address), &length) != 0) {
    fail("The routes cannot be watched");
  }
  return {std::move(fd), address.nl_pid};
}

}  // namespace

struct RouteMonitor::State : std::enable_shared_from_this<State> {
  explicit State(const Executor& io) : descriptor(io), timer(io) {}

  // Written by start, before anything else runs.
  Executor executor;
  Handler handler;

  std::atomic<bool> closed = false;

  std::mutex lock;  // guards what follows
  asio::posix::stream_descriptor descriptor;
  asio::steady_timer timer;
  std::uint32_t port = 0;
  std::uint32_t sequence = 0;  // of the last dump
  bool dumping = false;
  bool found = false;        // a default route, by the dump that runs
  bool interrupted = false;  // the dump that runs cannot be relied on
  bool stale = false;        // something has changed since the last dump began
  bool waiting = false;
  std::optional<bool> reported;

  void start() {
    auto [fd, given] = openRouteSocket();
    const std::scoped_lock hold(lock);
    port = given;
    descriptor.assign(fd.release());
    if (!askForDump()) fail("The routes cannot be asked for");
    wait();
  }

  /// False, and errno, when the kernel does not take the question.
  bool askForDump() {
    struct {
      nlmsghdr head;
      rtmsg route;
    } question{};
    question.head.nlmsg_len = sizeof question;
    question.head.nlmsg_type = RTM_GETROUTE;
    question.head.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    question.head.nlmsg_seq = ++sequence;
    question.route.rtm_family = AF_UNSPEC;
    auto kernel = netlinkAddress();
    ssize_t sent = -1;
    do {
      sent =
          ::sendto(descriptor.native_handle(), &question, sizeof question, 0, generic(kernel), sizeof kernel);
    } while (sent < 0 && errno == EINTR);
    dumping = sent >= 0;
    found = interrupted = false;
    stale = !dumping;
    return dumping;
  }

  void wait() {
    descriptor.async_wait(asio::posix::stream_descriptor::wait_read,
                          [self = shared_from_this()](const boost::system::error_code& error) {
                            if (!error) self->readable();
                          });
  }

  void readable() {
    const std::scoped_lock hold(lock);
    if (closed) return;
    for (int i = 0; i < answersAtOnce && readAnswer(); ++i) {
    }
    if (stale && !dumping) lookAfter(settling);
    wait();
  }

  /// Reads one datagram; false when there is none for now.
  bool readAnswer() {
    alignas(nlmsghdr) std::array<char, longestAnswer> buffer;
    auto sender = netlinkAddress();
    socklen_t length = sizeof sender;
    const auto count = ::recvfrom(descriptor.native_handle(), buffer.data(), buffer.size(), MSG_TRUNC,
                                  generic(sender), &length);
    if (count < 0) {
      if (errno == EINTR) return true;
      if (errno == EAGAIN) return false;
      stale = true;
      if (errno == ENOBUFS) return true;  // changes were lost; a dump that runs never is
      lookAfter(patience);
      return false;
    }
    if (sender.nl_pid != 0) return true;  // another process, which has no say here
    const auto size = static_cast<std::size_t>(count);
    const auto said =
        RouteMessages::read(std::string_view(buffer.data(), std::min(size, buffer.size())), port, sequence);
    stale = stale || said.changed || said.dumpInterrupted;
    found = found || said.defaultRoute;
    interrupted = interrupted || said.dumpInterrupted;
    if (said.dumpEnded) endDump(said.dumpError);
    return true;
  }

  void endDump(int error) {
    dumping = false;
    if (error != 0) {
      shellLog(withErrno("the routes cannot be read", error));
      // To try and fail costs less than never to try.
      if (!reported) report(true);
      lookAfter(patience);
    } else if (!interrupted) {
      report(found);
    }
  }

  void report(bool satisfied) {
    if (reported == satisfied) return;
    reported = satisfied;
    asio::post(executor, [self = shared_from_this(), satisfied] {
      if (!self->closed) self->handler(satisfied);
    });
  }

  /// Asks for the routes again after a while, once for however many changes.
  void lookAfter(std::chrono::milliseconds delay) {
    if (std::exchange(waiting, true)) return;
    timer.expires_after(delay);
    timer.async_wait([self = shared_from_this()](const boost::system::error_code& error) {
      if (!error) self->look();
    });
  }

  void look() {
    const std::scoped_lock hold(lock);
    waiting = false;
    if (closed || dumping) return;
    if (!askForDump()) lookAfter(patience);
  }

  void close() {
    closed = true;
    const std::scoped_lock hold(lock);
    boost::system::error_code ignored;
    descriptor.close(ignored);
    timer.cancel();
  }
};

RouteMonitor::RouteMonitor(Executor io) : state_(std::make_shared<State>(io)) {}

RouteMonitor::~RouteMonitor() {
  state_->close();
}

void RouteMonitor::start(Executor executor, Handler handler) {
  state_->executor = std::move(executor);
  state_->handler = std::move(handler);
  state_->start();
}

void RouteMonitor::cancel() {
  state_->close();
}

namespace {

/// The network is there because the deployment says so.
class AssumedPath : public NetworkPathMonitor {
 public:
  ~AssumedPath() override { *cancelled_ = true; }

  void start(Executor executor, Handler handler) override {
    asio::post(executor, [cancelled = cancelled_, handler = std::move(handler)] {
      if (!*cancelled) handler(true);
    });
  }
  void cancel() override { *cancelled_ = true; }

 private:
  const std::shared_ptr<std::atomic<bool>> cancelled_ = std::make_shared<std::atomic<bool>>(false);
};

}  // namespace

std::unique_ptr<NetworkPathMonitor> makeNetworkPathMonitor(Executor io, bool assumeOnline) {
  if (assumeOnline) return std::make_unique<AssumedPath>();
  return std::make_unique<RouteMonitor>(std::move(io));
}

}  // namespace vorlane
