#pragma once

#include "base/tasks/Task.h"
#include "platform/SignalCenter.h"

#include <memory>
#include <string>
#include <string_view>

namespace vorlane {

/// Signals as files in a folder that all processes watch. The watch is on `io`;
/// handlers for posts of other processes run on a strand over `handlers`, since they
/// may wait for a file or a lock. Both executors have to outlive the centre;
/// observations may outlive it.
class FileSignalCenter : public SignalCenter {
 public:
  /// Throws Failure naming the folder when it cannot be made or watched.
  FileSignalCenter(const std::string& folder, const Executor& io, const Executor& handlers);
  ~FileSignalCenter() override;
  FileSignalCenter(const FileSignalCenter&) = delete;
  FileSignalCenter& operator=(const FileSignalCenter&) = delete;

  bool post(std::string_view name) override;
  [[nodiscard]] Observation observe(std::string name, std::function<void()> handler) override;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace vorlane
