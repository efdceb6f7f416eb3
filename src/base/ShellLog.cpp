#include "base/ShellLog.h"

#include "base/Date.h"
#include "base/Redaction.h"
#include "base/Text.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

namespace vorlane {
namespace {

// Installed once, then read by any thread for as long as the process lives.
std::atomic<const ShellLog*> installed{nullptr};

}  // namespace

ShellLog::ShellLog(std::string path, std::string processName)
    : path_(std::move(path)), processName_(std::move(processName)) {}

void ShellLog::write(std::string_view message) const try {
  auto line = fmt::format("{:.6f} [{}] {}", secondsSince1970(now()), processName_, message);
  for (char& c : line) {
    if (c == '\n' || c == '\r') c = ' ';
  }
  line += '\n';
  // O_NONBLOCK, so that a pipe planted under the name cannot hang the opening.
  const int fd = ::open(path_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK,
                        S_IRUSR | S_IWUSR);
  if (fd < 0) return;
  struct stat status{};
  if (::fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) {
    [[maybe_unused]] const auto written = ::write(fd, line.data(), line.size());
  }
  ::close(fd);
} catch (const std::exception&) {
  // A log that cannot be written is no reason to fail.
}

void installShellLog(ShellLog log) {
  // The earlier one may be in use on another thread, so it is never freed.
  static std::vector<std::unique_ptr<const ShellLog>> kept;
  static std::mutex lock;
  const std::scoped_lock hold(lock);
  kept.push_back(std::make_unique<const ShellLog>(std::move(log)));
  installed.store(kept.back().get(), std::memory_order_release);
}

void shellLog(std::string_view message) {
  if (const auto* log = installed.load(std::memory_order_acquire)) log->write(redacted(std::string(message)));
}

}  // namespace vorlane
