#pragma once

#include <sys/un.h>

#include <cstddef>
#include <string>

namespace vorlane {

/// A line of the control protocol, without its newline, is at most this long, in
/// either direction.
inline constexpr std::size_t controlLineLimit = std::size_t{1} << 20;

/// The address of a Unix socket at `path`. Throws Failure when the path is too
/// long for one, or empty.
sockaddr_un controlAddress(const std::string& path);

}  // namespace vorlane
