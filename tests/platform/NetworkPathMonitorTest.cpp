#include "platform/NetworkPathMonitor.h"

#include "base/FileDescriptor.h"
#include "base/tasks/Runtime.h"
#include "platform/linux/RouteMessages.h"

#include <gtest/gtest.h>
#include <linux/rtnetlink.h>
#include <linux/veth.h>
#include <net/if.h>
#include <sys/socket.h>
#include <boost/asio/post.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/use_future.hpp>

#include <cstring>
#include <latch>
#include <mutex>
#include <optional>
#include <semaphore>
#include <system_error>
#include <vector>

// Runs under "unshare -rn": the namespace has a loopback and nothing else.
namespace vorlane {
namespace {

template <class T>
std::string bytesOf(const T& value) {
  return {reinterpret_cast<const char*>(&value), sizeof value};
}
std::string padded(std::string bytes) {
  bytes.resize((bytes.size() + 3) & ~std::size_t{3});
  return bytes;
}
std::string attribute(std::uint16_t type, const std::string& content) {
  const auto length = static_cast<std::uint16_t>(sizeof(rtattr) + content.size());
  return padded(bytesOf(rtattr{length, type}) + content);
}
std::string hop(int link, std::uint8_t flags = 0) {
  return bytesOf(rtnexthop{sizeof(rtnexthop), flags, 0, link});
}
std::string message(std::uint16_t type, const std::string& body, int flags = 0, unsigned sequence = 7,
                    unsigned port = 1) {
  const auto length = static_cast<unsigned>(sizeof(nlmsghdr) + body.size());
  return padded(bytesOf(nlmsghdr{length, type, static_cast<std::uint16_t>(flags), sequence, port}) + body);
}

/// A route, a usable default one unless told otherwise.
struct Route {
  std::uint8_t family = AF_INET, bits = 0, table = RT_TABLE_MAIN, type = RTN_UNICAST;
  unsigned flags = 0;
  int link = 2;  // none when 0
  std::string attributes = {};

  std::string body() const {
    return bytesOf(rtmsg{family, bits, 0, 0, table, RTPROT_STATIC, RT_SCOPE_LINK, type, flags}) + attributes +
           (link == 0 ? "" : attribute(RTA_OIF, bytesOf(link)));
  }
};

/// Changes the namespace as a person with "ip" does.
class Kernel {
 public:
  /// Makes two links that are each other's far end, both up.
  Kernel() {
    ask(RTM_NEWLINK,
        bytesOf(ifinfomsg{}) + attribute(IFLA_IFNAME, "here") +
            attribute(IFLA_LINKINFO, attribute(IFLA_INFO_KIND, "veth")),
        NLM_F_CREATE | NLM_F_EXCL);
    here = static_cast<int>(::if_nametoindex("here"));
    there = static_cast<int>(::if_nametoindex("veth0"));
    for (const int link : {1, here, there}) set(link, true);
  }
  void add(const Route& route) { ask(RTM_NEWROUTE, route.body(), NLM_F_CREATE | NLM_F_EXCL); }
  void remove(const Route& route) { ask(RTM_DELROUTE, route.body()); }
  void set(int link, bool up) {
    ask(RTM_NEWLINK, bytesOf(ifinfomsg{AF_UNSPEC, 0, 0, link, up ? unsigned{IFF_UP} : 0U, IFF_UP}));
  }

  int here = 0, there = 0;

 private:
  /// Throws when the kernel refuses.
  void ask(std::uint16_t type, const std::string& body, int flags = 0) {
    const auto question = message(type, body, NLM_F_REQUEST | NLM_F_ACK | flags, ++sequence_, 0);
    char answer[8192];
    ASSERT_GT(::send(socket_.get(), question.data(), question.size(), 0), 0);
    ASSERT_GT(::recv(socket_.get(), answer, sizeof answer, 0), 0);
    nlmsgerr error{};
    std::memcpy(&error, answer + sizeof(nlmsghdr), sizeof error);
    if (error.error != 0) throw std::system_error(-error.error, std::generic_category(), "netlink");
  }

  FileDescriptor socket_{::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE)};
  unsigned sequence_ = 0;
};

/// A monitor, and what it has reported.
class Watched {
 public:
  Watched(Runtime& runtime, bool assumed)
      : strand_(boost::asio::make_strand(runtime.concurrent())),
        monitor_(makeNetworkPathMonitor(runtime.io(), assumed)) {
    monitor_->start(strand_, [this](bool satisfied) {
      const std::scoped_lock hold(lock_);
      all_.push_back(satisfied);
      waiting_.release();
    });
  }
  /// The first report that nobody has taken yet.
  std::optional<bool> next() {
    if (!waiting_.try_acquire_for(std::chrono::seconds(10))) return {};
    const std::scoped_lock hold(lock_);
    return all_[taken_++];
  }
  /// Ends the reports; how many there were that nobody has taken.
  std::size_t end() {
    boost::asio::post(strand_, boost::asio::use_future([this] { monitor_->cancel(); })).get();
    return left();
  }
  std::size_t left() {
    const std::scoped_lock hold(lock_);
    return all_.size() - taken_;
  }

 private:
  Executor strand_;
  std::unique_ptr<NetworkPathMonitor> monitor_;
  std::mutex lock_;
  std::counting_semaphore<> waiting_{0};
  std::vector<bool> all_;
  std::size_t taken_ = 0;
};

TEST(NetworkPathMonitorTest, TheKernelsRoutesAreFollowedThroughEveryWayInWhichADefaultRouteComesAndGoes) {
  Kernel kernel;
  Runtime runtime;
  const Route four{.link = kernel.here}, six{.family = AF_INET6, .link = kernel.here};
  Watched watched(runtime, false);
  EXPECT_EQ(watched.next(), false);
  kernel.add(four);
  EXPECT_EQ(watched.next(), true);
  kernel.remove(four);
  EXPECT_EQ(watched.next(), false);
  kernel.add(six);
  EXPECT_EQ(watched.next(), true);
  kernel.add(four);
  kernel.remove(six);
  kernel.set(kernel.there, false);
  EXPECT_EQ(watched.next(), false) << "the far end is down";
  kernel.set(kernel.there, true);
  EXPECT_EQ(watched.next(), true);
  kernel.set(kernel.here, false);
  EXPECT_EQ(watched.next(), false) << "the route went with its link, of which the kernel says nothing";
  kernel.set(kernel.here, true);

  // More words than the socket holds, while nobody reads them.
  std::latch entered(1), gate(1);
  boost::asio::post(runtime.io(), [&] {
    entered.count_down();
    gate.wait();
  });
  entered.wait();
  for (int i = 0; i < 600; ++i) {
    kernel.add(four);
    kernel.remove(four);
  }
  kernel.add(four);
  gate.count_down();
  EXPECT_EQ(watched.next(), true);

  EXPECT_EQ(watched.end(), 0U) << "no report but of a change";
  kernel.remove(four);
  Watched later(runtime, false);
  EXPECT_EQ(later.next(), false);
  EXPECT_EQ(later.end() + watched.left(), 0U) << "none after the end";
}

TEST(NetworkPathMonitorTest, ANetworkThatIsAssumedIsReportedOnce) {
  Runtime runtime;
  Watched watched(runtime, true);
  EXPECT_EQ(watched.next(), true);
  EXPECT_EQ(watched.end(), 0U);
}

TEST(RouteMessagesTest, ADefaultRouteThatLeadsNowhereIsNoneAndTheDumpIsToldFromTheChangesAndItsInterruption) {
  const auto several = [](const std::string& hops) {
    return Route{.link = 0, .attributes = attribute(RTA_MULTIPATH, hops)};
  };
  const auto inTable = [](unsigned table) {
    return Route{.table = RT_TABLE_COMPAT, .attributes = attribute(RTA_TABLE, bytesOf(table))};
  };
  const auto of = [](const Route& route) { return message(RTM_NEWROUTE, route.body()); };
  const auto gone = [](const Route& route, unsigned sequence) {
    return message(RTM_DELROUTE, route.body(), 0, sequence);
  };
  const auto end = message(NLMSG_DONE, bytesOf(0));
  using Said = std::tuple<bool, bool, bool, int, bool>;  // as RouteMessages has them
  const Said leads{true, false, false, 0, false}, changed{false, false, false, 0, true}, nothing;
  const std::pair<std::string, Said> cases[] = {
      {of({.link = 0, .attributes = attribute(RTA_NH_ID, bytesOf(3))}), leads},
      {of(several(hop(2, RTNH_F_DEAD) + hop(3))), leads},
      {of(inTable(RT_TABLE_MAIN)), leads},
      {of(inTable(1000)), nothing},
      {of({.table = 100}), nothing},
      {of({.bits = 8}), nothing},
      {of({.type = RTN_BLACKHOLE}), nothing},
      {of({.flags = RTNH_F_LINKDOWN}), nothing},
      {of({.flags = RTM_F_CLONED}), nothing},
      {of({.link = 1}), nothing},
      {of({.link = 0}), nothing},
      {of(several(hop(1) + hop(2, RTNH_F_DEAD) + hop(3, RTNH_F_LINKDOWN))), nothing},
      {of(several(hop(2).substr(0, 6))), nothing},
      {message(NLMSG_DONE, bytesOf(-12)), {false, true, false, 12, false}},
      {message(NLMSG_ERROR, bytesOf(-1)), {false, true, false, 1, false}},
      {message(RTM_NEWROUTE, Route{.bits = 8}.body(), NLM_F_DUMP_INTR) + end, {false, true, true, 0, false}},
      // Of others: by port, by sequence.
      {message(RTM_NEWROUTE, Route{}.body(), 0, 7, 2), changed},
      {gone({}, 6), changed},
      {gone({.bits = 8}, 0), nothing},
      // Cut, or with a length that lies.
      {of({}) + end.substr(0, 9), {true, false, false, 0, true}},
      {std::string(64, '\0'), changed},
  };
  for (const auto& [bytes, expected] : cases) {
    const auto said = RouteMessages::read(bytes, 1, 7);
    EXPECT_EQ(Said(said.defaultRoute, said.dumpEnded, said.dumpInterrupted, said.dumpError, said.changed),
              expected)
        << "row " << &bytes - &cases[0].first;
  }
}

}  // namespace
}  // namespace vorlane
