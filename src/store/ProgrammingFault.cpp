#include "store/ProgrammingFault.h"

#include "base/ShellLog.h"

#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>

namespace vorlane {

void programmingFault(std::string_view message) {
  shellLog(message);
  fmt::print(stderr, "{}\n", message);
  std::abort();
}

}  // namespace vorlane
