#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace vorlane {

class FileDescriptor;

/// Says that this process is the one agent of its container, for as long as the
/// object lives. The kernel releases it when the process ends, however it ends, so a
/// stale file never blocks an agent. The file holds the process id, for people to
/// read, and is never removed.
class InstanceLock {
 public:
  /// Nothing when another process (or another object of this one) holds the
  /// lock. Throws Failure naming the path when the file cannot be used; a
  /// symbolic link is refused.
  static std::optional<InstanceLock> tryAcquire(const std::string& path);
  /// Blocks until the lock is free. Throws as tryAcquire.
  static InstanceLock acquire(const std::string& path);

 private:
  explicit InstanceLock(std::shared_ptr<FileDescriptor> held) : held_(std::move(held)) {}
  static std::optional<InstanceLock> lock(const std::string& path, int operation);

  std::shared_ptr<FileDescriptor> held_;
};

}  // namespace vorlane
