#pragma once

#include <cstddef>
#include <string>

namespace vorlane {

/// Bytes from the system's secure random source. Throws Failure when it has none.
std::string secureRandomBytes(std::size_t count);

}  // namespace vorlane
