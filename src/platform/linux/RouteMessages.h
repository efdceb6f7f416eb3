#pragma once

#include <cstdint>
#include <string_view>

namespace vorlane {

/// What one datagram of the kernel's routing socket (rtnetlink) says to a program that has asked
/// for a dump of all routes and also listens to changes.
struct RouteMessages {
  /// The dump lists a default route of the main table that leads somewhere: IPv4 or IPv6, over
  /// another link than the loopback, with a next hop whose link is up.
  bool defaultRoute = false;
  /// The dump has come to its end.
  bool dumpEnded = false;
  /// The table changed while it was dumped, so that the dump may have missed something.
  bool dumpInterrupted = false;
  /// The errno with which the kernel refused the dump; it has then ended too.
  int dumpError = 0;
  /// Apart from the dump: something changed that a default route may depend on, or messages were lost.
  bool changed = false;

  /// `port` and `sequence` identify the dump's messages. Bytes that are no whole
  /// message end the reading and count as a change.
  static RouteMessages read(std::string_view bytes, std::uint32_t port, std::uint32_t sequence);
};

}  // namespace vorlane
