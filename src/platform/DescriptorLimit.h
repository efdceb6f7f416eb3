#pragma once

#include <cstdint>

namespace vorlane {

/// Raises the soft limit on open descriptors to the hard one: a desktop's soft limit is
/// 1,024, which any local user could use up with idle connections. To be called once, at
/// the start. A limit that cannot be raised stays as it is.
void raiseDescriptorLimit();

/// The soft limit that the process was started with. A child is to get it back before it
/// executes its program (setrlimit after the fork, or prlimit from here), since
/// programs that use select(2), or close every descriptor up to the limit, cannot cope
/// with a high one. Callable from any thread.
std::uint64_t descriptorLimitForChildren();

}  // namespace vorlane
