#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>

namespace vorlane::testing {

/// A folder of the test's own, gone with it.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "vorlane-test-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary folder");
    path_ = pattern;
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  std::string path(std::string_view name = "") const {
    return name.empty() ? path_ : path_ + "/" + std::string(name);
  }
  void write(std::string_view name, std::string_view bytes) const {
    std::filesystem::create_directories(std::filesystem::path(path(name)).parent_path());
    std::ofstream(path(name), std::ios::binary) << bytes;
  }
  std::string read(std::string_view name) const {
    std::ifstream in(path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  void link(std::string_view name, std::string_view target) const {
    std::filesystem::create_symlink(path(target), path(name));
  }
  unsigned mode(std::string_view name) const {
    return static_cast<unsigned>(std::filesystem::status(path(name)).permissions());
  }
  /// The exit status of a process that does `work` and may not touch `name`.
  /// Rights do not bind root, so that process is then nobody's.
  int withoutRightsTo(std::string_view name, const std::function<int()>& work) const noexcept {
    std::filesystem::permissions(path_, std::filesystem::perms(0755));
    std::filesystem::permissions(path(name), std::filesystem::perms::none);
    const pid_t child = ::fork();
    if (child == 0) ::_exit(::geteuid() == 0 && ::setresuid(65534, 65534, 65534) != 0 ? 99 : work());
    int status = -1;
    ::waitpid(child, &status, 0);
    std::filesystem::permissions(path(name), std::filesystem::perms::owner_all);
    return status;
  }

 private:
  std::string path_;
};

}  // namespace vorlane::testing
