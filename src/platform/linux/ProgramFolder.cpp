#include "platform/ProgramFolder.h"

#include "base/Failure.h"

#include <system_error>

namespace vorlane {

std::filesystem::path programFolder() {
  std::error_code error;
  const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
  if (error) throw Failure("the program cannot find its own folder: " + error.message());
  return program.parent_path();
}

}  // namespace vorlane
