#include "base/SecureRandom.h"

#include "base/Failure.h"

#include <sys/random.h>

#include <cerrno>

namespace vorlane {

std::string secureRandomBytes(std::size_t count) {
  std::string bytes(count, '\0');
  std::size_t filled = 0;
  while (filled < count) {
    const auto got = getrandom(bytes.data() + filled, count - filled, 0);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) throw Failure(withErrno("the secure random source failed", errno));
    filled += static_cast<std::size_t>(got);
  }
  return bytes;
}

}  // namespace vorlane
