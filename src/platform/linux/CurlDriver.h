#pragma once

#include "platform/linux/CurlTransfer.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace vorlane {

/// Drives every transfer of the process on one thread, which is made at the first
/// and sleeps without waking while there is none. Callable from any thread.
class CurlDriver {
 public:
  CurlDriver();
  /// Ends the thread; transfers under way end with a failure.
  ~CurlDriver();
  CurlDriver(const CurlDriver&) = delete;
  CurlDriver& operator=(const CurlDriver&) = delete;

  /// Starts a transfer. Its end is reported on the driver's thread.
  void start(std::shared_ptr<CurlTransfer> transfer);
  /// Cuts a transfer, which ends with operation_aborted unless it has ended.
  void cancel(std::shared_ptr<CurlTransfer> transfer);

 private:
  struct Command {
    std::shared_ptr<CurlTransfer> transfer;
    bool cancels = false;
  };
  struct FreeMulti {
    void operator()(void* multi) const;
  };

  void give(Command command);
  void run();
  bool takeCommands();
  void begin(const std::shared_ptr<CurlTransfer>& transfer);
  std::shared_ptr<CurlTransfer> remove(void* handle);
  void collectEnded();
  bool makeRoom(CurlTransfer& transfer, std::size_t bytes);
  void collectGivenUp();
  int patience();

  const std::unique_ptr<void, FreeMulti> multi_;  // libcurl's
  // The driver's thread alone.
  std::vector<std::shared_ptr<CurlTransfer>> running_;
  bool anyGivenUp_ = false;
  /// When memory that answers took is given back to the system.
  std::optional<std::chrono::steady_clock::time_point> trimAt_;

  const std::shared_ptr<AnswerMemory> memory_;
  std::atomic<bool> emptied_ = false;  // set by whoever gives back the last of the memory
  std::mutex lock_;
  std::vector<Command> commands_;
  bool ending_ = false;
  std::thread thread_;
};

}  // namespace vorlane
