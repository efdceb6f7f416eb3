#include "platform/NetworkPathMonitor.h"

#include "base/FileDescriptor.h"
#include "base/tasks/Runtime.h"
#include "platform/linux/RouteMessages.h"

#include <gmock/gmock.h>
#include <linux/rtnetlink.h>
#include <linux/veth.h>
#include <net/if.h>
#include <sys/socket.h>
#include <boost/asio/post.hpp>
#include <boost/asio/strand.hpp>

#include <condition_variable>
#include <cstring>
#include <future>
#include <mutex>
#include <optional>
#include <system_error>
#include <vector>

// Runs under "unshare -rn": the namespace has a loopback and nothing else.
namespace vorlane {
namespace {

using ::testing::ElementsAre;

template <class T>
std::string bytesOf(const T& value) {
  return {reinterpret_cast<const char*>(&value), sizeof value};
}
std::string padded(std::string bytes) {
  bytes.resize((bytes.size() + 3) & ~std::size_t{3});
  return bytes;
}
std::string attribute(unsigned short type, const std::string& content) {
  const auto length = static_cast<unsigned short>(sizeof(rtattr) + content.size());
  return padded(bytesOf(rtattr{.rta_len = length, .rta_type = type}) + content);
}
std::string hop(int link, unsigned char flags = 0) {
  rtnexthop next{};
  next.rtnh_len = sizeof next;
  next.rtnh_flags = flags;
  next.rtnh_ifindex = link;
  return bytesOf(next);
}
std::string message(int type, const std::string& body, int flags = 0, unsigned sequence = 7,
                    unsigned port = 1) {
  nlmsghdr head{};
  head.nlmsg_len = static_cast<unsigned>(sizeof head + body.size());
  head.nlmsg_type = static_cast<unsigned short>(type);
  head.nlmsg_flags = static_cast<unsigned short>(flags);
  head.nlmsg_seq = sequence;
  head.nlmsg_pid = port;
  return padded(bytesOf(head) + body);
}

/// A route, a usable default one unless told otherwise.
struct Route {
  unsigned char family = AF_INET, bits = 0, table = RT_TABLE_MAIN, type = RTN_UNICAST;
  unsigned flags = 0;
  int link = 2;  // none when 0
  std::string attributes = {};

  std::string body() const {
    rtmsg head{};
    head.rtm_family = family;
    head.rtm_dst_len = bits;
    head.rtm_table = table;
    head.rtm_protocol = RTPROT_STATIC;
    head.rtm_scope = family == AF_INET ? RT_SCOPE_LINK : RT_SCOPE_UNIVERSE;
    head.rtm_type = type;
    head.rtm_flags = flags;
    auto body = bytesOf(head) + attributes;
    if (link != 0) body += attribute(RTA_OIF, bytesOf(link));
    return body;
  }
};

/// Changes the namespace as a person with "ip" does.
class Kernel {
 public:
  /// Throws when the kernel refuses.
  void ask(int type, const std::string& body, int flags = 0) {
    const auto question = message(type, body, NLM_F_REQUEST | NLM_F_ACK | flags, ++sequence_, 0);
    ASSERT_GT(::send(socket_.get(), question.data(), question.size(), 0), 0);
    char answer[8192];
    ASSERT_GT(::recv(socket_.get(), answer, sizeof answer, 0), 0);
    nlmsgerr error{};
    std::memcpy(&error, answer + sizeof(nlmsghdr), sizeof error);
    if (error.error != 0) throw std::system_error(-error.error, std::generic_category(), "netlink");
  }
  void add(const Route& route) { ask(RTM_NEWROUTE, route.body(), NLM_F_CREATE | NLM_F_EXCL); }
  void remove(const Route& route) { ask(RTM_DELROUTE, route.body()); }
  void set(int link, bool up) {
    ifinfomsg head{};
    head.ifi_index = link;
    head.ifi_flags = up ? IFF_UP : 0;
    head.ifi_change = IFF_UP;
    ask(RTM_NEWLINK, bytesOf(head));
  }
  /// Two links that are each other's far end, both up.
  void makePair() {
    const auto kind = attribute(IFLA_INFO_KIND, "veth");
    ask(RTM_NEWLINK, bytesOf(ifinfomsg{}) + attribute(IFLA_IFNAME, "here") + attribute(IFLA_LINKINFO, kind),
        NLM_F_CREATE | NLM_F_EXCL);
    here = static_cast<int>(::if_nametoindex("here"));
    there = static_cast<int>(::if_nametoindex("veth0"));
    for (const int link : {1, here, there}) set(link, true);
  }

  int here = 0, there = 0;

 private:
  FileDescriptor socket_{::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE)};
  unsigned sequence_ = 0;
};

/// What a monitor has reported.
class Reports {
 public:
  NetworkPathMonitor::Handler handler() {
    return [this](bool satisfied) {
      const std::scoped_lock hold(lock_);
      all_.push_back(satisfied);
      changed_.notify_all();
    };
  }
  /// The first report that nobody has taken yet.
  std::optional<bool> next() {
    std::unique_lock hold(lock_);
    if (!changed_.wait_for(hold, std::chrono::seconds(10), [&] { return all_.size() > taken_; })) return {};
    return all_[taken_++];
  }
  std::size_t count() {
    const std::scoped_lock hold(lock_);
    return all_.size();
  }

 private:
  std::mutex lock_;
  std::condition_variable changed_;
  std::vector<bool> all_;
  std::size_t taken_ = 0;
};

struct NetworkPathMonitorTest : ::testing::Test {
  void onStrand(const std::function<void()>& work) {
    std::promise<void> done;
    boost::asio::post(strand, [&] {
      work();
      done.set_value();
    });
    done.get_future().wait();
  }

  Kernel kernel;
  Runtime runtime;
  Executor strand = boost::asio::make_strand(runtime.concurrent());
  Reports reports;
  std::unique_ptr<NetworkPathMonitor> monitor = makeNetworkPathMonitor(runtime.io(), false);
};

TEST_F(NetworkPathMonitorTest, TheKernelsRoutesAreFollowedThroughEveryWayInWhichADefaultRouteComesAndGoes) {
  kernel.makePair();
  const Route four{.link = kernel.here};
  const Route six{.family = AF_INET6, .link = kernel.here};
  monitor->start(strand, reports.handler());
  EXPECT_EQ(reports.next(), false);
  kernel.add(four);
  EXPECT_EQ(reports.next(), true);
  kernel.remove(four);
  EXPECT_EQ(reports.next(), false);
  kernel.add(six);
  EXPECT_EQ(reports.next(), true);
  kernel.add(four);
  kernel.remove(six);
  kernel.set(kernel.there, false);
  EXPECT_EQ(reports.next(), false) << "the far end is down";
  kernel.set(kernel.there, true);
  EXPECT_EQ(reports.next(), true);
  kernel.set(kernel.here, false);
  EXPECT_EQ(reports.next(), false) << "the route went with its link, of which the kernel says nothing";
  kernel.set(kernel.here, true);

  {
    // More words than the socket holds, while nobody reads them.
    std::promise<void> entered, gate;
    boost::asio::post(runtime.io(), [&entered, end = gate.get_future().share()] {
      entered.set_value();
      end.wait();
    });
    entered.get_future().wait();
    for (int i = 0; i < 600; ++i) {
      kernel.add(four);
      kernel.remove(four);
    }
    kernel.add(four);
    gate.set_value();
  }
  EXPECT_EQ(reports.next(), true);

  onStrand([&] { monitor->cancel(); });
  kernel.remove(four);
  Reports others;
  const auto later = makeNetworkPathMonitor(runtime.io(), false);
  later->start(strand, others.handler());
  EXPECT_EQ(others.next(), false);
  onStrand([&] { later->cancel(); });
  EXPECT_EQ(reports.count(), 8U) << "no report but of a change, and none after the end";
}

TEST(RouteMessagesTest, ADefaultRouteThatLeadsNowhereIsNone) {
  const auto several = [](const std::string& hops) {
    return Route{.link = 0, .attributes = attribute(RTA_MULTIPATH, hops)};
  };
  const auto inTable = [](unsigned table) {
    return Route{.table = RT_TABLE_COMPAT, .attributes = attribute(RTA_TABLE, bytesOf(table))};
  };
  const Route leading[] = {{},
                           {.family = AF_INET6},
                           {.link = 0, .attributes = attribute(RTA_NH_ID, bytesOf(3))},
                           several(hop(2, RTNH_F_DEAD) + hop(3)),
                           inTable(RT_TABLE_MAIN)};
  const Route notLeading[] = {{.link = 1},
                              {.link = 0},
                              {.bits = 8},
                              {.family = AF_UNIX},
                              {.table = 100},
                              inTable(1000),
                              {.type = RTN_UNREACHABLE},
                              {.type = RTN_BLACKHOLE},
                              {.flags = RTNH_F_LINKDOWN},
                              {.flags = RTM_F_CLONED},
                              several(hop(1) + hop(2, RTNH_F_DEAD) + hop(3, RTNH_F_LINKDOWN)),
                              several(hop(2).substr(0, 6))};
  const auto leads = [](const Route& route) {
    return RouteMessages::read(message(RTM_NEWROUTE, route.body()), 1, 7).defaultRoute;
  };
  for (const auto& route : leading) EXPECT_TRUE(leads(route)) << &route - leading;
  for (const auto& route : notLeading) EXPECT_FALSE(leads(route)) << &route - notLeading;
}

TEST(RouteMessagesTest, TheDumpIsToldFromTheChangesAndItsEndFromItsInterruption) {
  const auto said = [](const std::string& bytes) {
    const auto all = RouteMessages::read(bytes, 1, 7);
    return std::vector<int>{all.defaultRoute, all.dumpEnded, all.dumpInterrupted, all.dumpError, all.changed};
  };
  const auto route = message(RTM_NEWROUTE, Route{}.body());
  const auto end = message(NLMSG_DONE, bytesOf(0));
  EXPECT_THAT(said(route), ElementsAre(1, 0, 0, 0, 0));
  EXPECT_THAT(said(route + end), ElementsAre(1, 1, 0, 0, 0));
  EXPECT_THAT(said(message(NLMSG_DONE, bytesOf(-12))), ElementsAre(0, 1, 0, 12, 0));
  EXPECT_THAT(said(message(NLMSG_ERROR, bytesOf(-1))), ElementsAre(0, 1, 0, 1, 0));
  EXPECT_THAT(said(message(RTM_NEWROUTE, Route{.bits = 8}.body(), NLM_F_DUMP_INTR) + end),
              ElementsAre(0, 1, 1, 0, 0));
  // Of others: by port, by sequence.
  EXPECT_THAT(said(message(RTM_NEWROUTE, Route{}.body(), 0, 7, 2)), ElementsAre(0, 0, 0, 0, 1));
  EXPECT_THAT(said(message(RTM_DELROUTE, Route{}.body(), 0, 6)), ElementsAre(0, 0, 0, 0, 1));
  EXPECT_THAT(said(message(RTM_DELROUTE, Route{.bits = 8}.body(), 0, 0, 0)), ElementsAre(0, 0, 0, 0, 0));
  EXPECT_THAT(said(message(RTM_NEWLINK, bytesOf(ifinfomsg{}), 0, 0, 0)), ElementsAre(0, 0, 0, 0, 1));
  EXPECT_THAT(said(message(NLMSG_DONE, bytesOf(0), 0, 6)), ElementsAre(0, 0, 0, 0, 0));
  // Cut, or with a length that lies.
  EXPECT_THAT(said(route + end.substr(0, 9)), ElementsAre(1, 0, 0, 0, 1));
  EXPECT_THAT(said(std::string(64, '\0')), ElementsAre(0, 0, 0, 0, 1));
}

TEST_F(NetworkPathMonitorTest, ANetworkThatIsAssumedIsReportedOnce) {
  monitor = makeNetworkPathMonitor(runtime.io(), true);
  monitor->start(strand, reports.handler());
  EXPECT_EQ(reports.next(), true);
  onStrand([&] { monitor->cancel(); });
  EXPECT_EQ(reports.count(), 1U);
}

}  // namespace
}  // namespace vorlane
