// Datagrams of the routing socket. Whatever they hold, they are read to their end, and a part
// of them never says more than the whole.
#include "platform/linux/RouteMessages.h"

#include <linux/netlink.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using vorlane::RouteMessages;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  // The dump is the one that the first message belongs to.
  nlmsghdr first{};
  if (size >= sizeof first) std::memcpy(&first, data, sizeof first);
  const auto whole = RouteMessages::read(bytes, first.nlmsg_pid, first.nlmsg_seq);
  if (whole.dumpError < 0 || (whole.dumpError != 0 && !whole.dumpEnded)) std::abort();
  const auto part = RouteMessages::read(bytes.substr(0, size / 2), first.nlmsg_pid, first.nlmsg_seq);
  if ((part.defaultRoute && !whole.defaultRoute) || (part.dumpEnded && !whole.dumpEnded)) std::abort();
  const auto foreign = RouteMessages::read(bytes, ~first.nlmsg_pid, first.nlmsg_seq);
  if (size >= sizeof first && first.nlmsg_len == size && (foreign.defaultRoute || foreign.dumpEnded)) {
    std::abort();
  }
  return 0;
}
