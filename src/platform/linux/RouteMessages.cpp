#include "platform/linux/RouteMessages.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <utility>

namespace vorlane {
namespace {

/// The loopback's index in every network namespace.
constexpr int loopbackIndex = 1;
constexpr unsigned deadHop = RTNH_F_DEAD | RTNH_F_LINKDOWN;

/// The first bytes as a record; nothing when there are too few.
template <class Record>
std::optional<Record> recordAt(std::string_view bytes) {
  if (bytes.size() < sizeof(Record)) return std::nullopt;
  Record record;
  bytes.copy(reinterpret_cast<char*>(&record), sizeof record);
  return record;
}

/// What follows a record, which is padded to four bytes.
std::string_view after(std::string_view bytes, std::size_t length) {
  return bytes.substr(std::min(bytes.size(), (length + 3) & ~std::size_t{3}));
}

/// Takes a part with its length at its head (an attribute, a next hop) off the bytes: the
/// record, and what the part holds behind it. Nothing at the end, and for a part that is not whole.
template <class Record, class Length>
std::optional<std::pair<Record, std::string_view>> takePart(std::string_view& bytes,
                                                            Length Record::* length) {
  const auto head = recordAt<Record>(bytes);
  if (!head) return std::nullopt;
  const std::size_t size = (*head).*length;
  if (size < sizeof(Record) || size > bytes.size()) return std::nullopt;
  const auto content = bytes.substr(sizeof(Record), size - sizeof(Record));
  bytes = after(bytes, size);
  return std::pair(*head, content);
}

bool anyHopAlive(std::string_view hops) {
  while (const auto hop = takePart(hops, &rtnexthop::rtnh_len)) {
    if (hop->first.rtnh_ifindex != loopbackIndex && (hop->first.rtnh_flags & deadHop) == 0) return true;
  }
  return false;
}

/// What a message about one route says, as far as it matters here.
struct Route {
  bool isMainDefault = false;
  bool leadsSomewhere = false;

  static Route read(std::string_view body) {
    const auto head = recordAt<rtmsg>(body);
    if (!head) return {};
    std::uint32_t table = head->rtm_table;
    std::optional<int> link;
    bool sharedHop = false;
    std::string_view hops;
    auto rest = after(body, sizeof(rtmsg));
    while (const auto attribute = takePart(rest, &rtattr::rta_len)) {
      const auto& [kind, content] = *attribute;
      const int type = kind.rta_type & NLA_TYPE_MASK;
      if (type == RTA_TABLE) table = recordAt<std::uint32_t>(content).value_or(table);
      if (type == RTA_OIF) link = recordAt<int>(content);
      if (type == RTA_NH_ID) sharedHop = true;
      if (type == RTA_MULTIPATH) hops = content;
    }
    const bool internet = head->rtm_family == AF_INET || head->rtm_family == AF_INET6;
    const bool alive = (head->rtm_flags & deadHop) == 0;
    const bool hasWay = hops.empty() ? alive && link.value_or(sharedHop ? 0 : loopbackIndex) != loopbackIndex
                                     : anyHopAlive(hops);
    return {
        .isMainDefault = internet && head->rtm_dst_len == 0 && table == RT_TABLE_MAIN,
        .leadsSomewhere = head->rtm_type == RTN_UNICAST && (head->rtm_flags & RTM_F_CLONED) == 0 && hasWay};
  }
};

/// One message of the dump that was asked for.
void readDumped(RouteMessages& said, const nlmsghdr& head, std::string_view body) {
  if ((head.nlmsg_flags & NLM_F_DUMP_INTR) != 0) said.dumpInterrupted = true;
  if (head.nlmsg_type == NLMSG_DONE || head.nlmsg_type == NLMSG_ERROR) {
    said.dumpEnded = true;
    said.dumpError = std::abs(std::max(recordAt<int>(body).value_or(0), -4095));
  } else if (head.nlmsg_type == RTM_NEWROUTE) {
    const auto route = Route::read(body);
    said.defaultRoute = said.defaultRoute || (route.isMainDefault && route.leadsSomewhere);
  }
}

bool isChange(const nlmsghdr& head, std::string_view body) {
  switch (head.nlmsg_type) {
    case RTM_NEWROUTE:
    case RTM_DELROUTE:
      return Route::read(body).isMainDefault;
    case NLMSG_NOOP:
    case NLMSG_ERROR:
    case NLMSG_DONE:
      return false;  // the end of a dump that nobody waits for any more
    default:
      return true;
  }
}

}  // namespace

RouteMessages RouteMessages::read(std::string_view bytes, std::uint32_t port, std::uint32_t sequence) {
  RouteMessages said;
  while (!bytes.empty()) {
    const auto message = takePart(bytes, &nlmsghdr::nlmsg_len);
    if (!message) {
      said.changed = true;
      break;
    }
    const auto& [head, body] = *message;
    if (head.nlmsg_pid == port && head.nlmsg_seq == sequence) {
      readDumped(said, head, body);
    } else {
      said.changed = said.changed || isChange(head, body);
    }
  }
  return said;
}

}  // namespace vorlane
