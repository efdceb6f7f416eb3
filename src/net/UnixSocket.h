#pragma once

#include "base/FileDescriptor.h"

#include <sys/types.h>
#include <sys/un.h>

#include <optional>
#include <string>

namespace vorlane {

/// The address of a socket at `path`. Throws Failure when the system has no room
/// for the path.
sockaddr_un unixAddress(const std::string& path);

/// A listening, non-blocking, close-on-exec stream socket. The file that it makes has
/// `mode` from its first moment on, or what the process's mask leaves when none
/// is given. Throws Failure naming `path`, which is how a person knows the address; no file of ours is left
/// then.
FileDescriptor listenOnUnixSocket(const sockaddr_un& address, const std::string& path,
                                  std::optional<mode_t> mode);

}  // namespace vorlane
