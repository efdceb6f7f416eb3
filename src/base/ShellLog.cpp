#include "base/ShellLog.h"

#include "base/Date.h"
#include "base/FileDescriptor.h"
#include "base/Redaction.h"
#include "base/Text.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <mutex>
#include <vector>

namespace vorlane {
namespace {

/// How far a file may grow beyond the limit while another process that has begun
/// to move it does not get on with that.
constexpr std::uint64_t slack = 1024 * 1024;

// Installed once, then read by any thread for as long as the process lives.
std::atomic<const ShellLog*> installed{nullptr};

/// Why a file is not written to; empty when it may be.
std::string objection(const struct stat& status) {
  if (S_ISLNK(status.st_mode)) return "it is a symbolic link";
  if (!S_ISREG(status.st_mode)) return "it is not a regular file";
  if (status.st_uid != ::geteuid()) return fmt::format("it belongs to user {}", status.st_uid);
  if (status.st_nlink > 1) return "it has a second name";
  return {};
}

/// The same for what has the name now. A missing file is no objection.
std::string objection(const std::string& path) {
  struct stat status{};
  return ::lstat(path.c_str(), &status) == 0 ? objection(status) : std::string();
}

enum class Moving { done, underWay, failed };

/// Moves the open file aside, unless another process or thread has done so since.
Moving moveAside(int fd, const std::string& path, std::uint64_t limit, std::size_t more) {
  // The lock is on the file itself, which nobody else may open.
  if (::flock(fd, LOCK_EX | LOCK_NB) != 0) return errno == EWOULDBLOCK ? Moving::underWay : Moving::failed;
  struct stat held{};
  struct stat named{};
  if (::fstat(fd, &held) != 0) return Moving::failed;
  if (::lstat(path.c_str(), &named) != 0) return errno == ENOENT ? Moving::done : Moving::failed;
  const bool same = held.st_dev == named.st_dev && held.st_ino == named.st_ino;
  if (!same || static_cast<std::uint64_t>(held.st_size) + more <= limit) return Moving::done;
  return ::rename(path.c_str(), (path + ".1").c_str()) == 0 ? Moving::done : Moving::failed;
}

/// Appends the line; or why this file can take none, when another has to.
std::string append(const std::string& path, std::string_view line, std::uint64_t limit) {
  // Each turn but the last finds a file that has just been moved.
  for (int turn = 0; turn < 10; ++turn) {
    // O_NONBLOCK, so that a pipe planted under the name cannot hang the opening.
    const FileDescriptor fd(::open(path.c_str(),
                                   O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK,
                                   S_IRUSR | S_IWUSR));
    // A folder or a descriptor that is missing is no reason to leave for good.
    if (!fd) return objection(path);
    struct stat status{};
    if (::fstat(fd.get(), &status) != 0) return {};
    if (auto reason = objection(status); !reason.empty()) return reason;
    const auto size = static_cast<std::uint64_t>(status.st_size);
    if (size > 0 && size + line.size() > limit) {
      const auto moving = moveAside(fd.get(), path, limit, line.size());
      if (moving == Moving::done) continue;
      if (moving == Moving::failed || size > limit + slack) return "it is full and cannot be moved";
    }
    [[maybe_unused]] const auto written = ::write(fd.get(), line.data(), line.size());
    return {};
  }
  return {};
}

}  // namespace

ShellLog::ShellLog(std::string path, std::string processName, std::optional<std::string> fallback,
                   std::uint64_t limit)
    : path_(std::move(path)),
      processName_(std::move(processName)),
      fallback_(std::move(fallback)),
      limit_(limit) {}

void ShellLog::write(std::string_view message) const try {
  auto line = fmt::format("{:.6f} [{}] {}", secondsSince1970(now()), processName_, message);
  for (char& c : line) {
    if (c == '\n' || c == '\r') c = ' ';
  }
  line += '\n';
  if (!*usesFallback_) {
    const auto reason = append(path_, line, limit_);
    if (reason.empty()) return;
    moveToFallback(reason);
  }
  if (!fallback_) return;
  std::error_code ignored;
  std::filesystem::create_directories(std::filesystem::path(*fallback_).parent_path(), ignored);
  append(*fallback_, line, limit_);
} catch (const std::exception&) {
  // A log that cannot be written is no reason to fail.
}

std::string ShellLog::path() const {
  if (!*usesFallback_) {
    const auto reason = objection(path_);
    if (reason.empty()) return path_;
    moveToFallback(reason);
  }
  return fallback_.value_or("");
}

void ShellLog::moveToFallback(const std::string& reason) const {
  if (usesFallback_->exchange(true)) return;
  const auto line = fmt::format("{}: the log {} is not used, since {}; {}\n", processName_, path_, reason,
                                fallback_ ? "the log is " + *fallback_ : "there is no log");
  [[maybe_unused]] const auto written = ::write(STDERR_FILENO, line.data(), line.size());
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

std::string shellLogPath() {
  const auto* log = installed.load(std::memory_order_acquire);
  return log != nullptr ? log->path() : std::string();
}

}  // namespace vorlane
