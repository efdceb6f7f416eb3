#include "base/tasks/Runtime.h"

#include "base/Failure.h"
#include "base/ShellLog.h"
#include "base/tasks/MemoryReturn.h"
#include "base/tasks/Poller.h"

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>

#include <algorithm>
#include <thread>
#include <vector>

namespace vorlane {
namespace {

namespace asio = boost::asio;

using WorkGuard = asio::executor_work_guard<asio::io_context::executor_type>;

/// Runs the context until it is stopped. A handler that throws is a fault of
/// ours, which costs its own piece of work and nothing else.
void runForever(asio::io_context& context) {
  for (;;) {
    try {
      context.run();
      return;
    } catch (const std::exception& error) {
      shellLog("a handler failed: " + describe(error));
    }
  }
}

class HeadlessMainLoop : public MainLoop {
 public:
  Executor executor() const override { return context_.get_executor(); }
  void run() override { runForever(context_); }
  void stop() override { context_.stop(); }

 private:
  mutable asio::io_context context_{1};
  WorkGuard work_ = asio::make_work_guard(context_);
};

/// A context that can destroy the work that it still holds.
class Context : public asio::io_context {
 public:
  using asio::io_context::io_context;
  void dropWork() { shutdown(); }
};

unsigned workers() {
  return std::max(4U, std::thread::hardware_concurrency());
}

}  // namespace

struct Runtime::Contexts {
  Context io{1};
  Context concurrent;
  std::shared_ptr<MemoryReturn> memory =
      std::make_shared<MemoryReturn>(io.get_executor(), concurrent.get_executor());
  Poller poller{workers(), [this] { memory->note(); }};
  WorkGuard ioWork = asio::make_work_guard(io);
  WorkGuard concurrentWork = asio::make_work_guard(concurrent);
  std::vector<std::thread> threads;
};

Runtime::Runtime() : contexts_(std::make_unique<Contexts>()) {
  contexts_->threads.emplace_back([this] { runForever(contexts_->io); });
  for (unsigned i = 0; i < workers(); ++i) {
    contexts_->threads.emplace_back([this] { runForever(contexts_->concurrent); });
  }
}

Runtime::~Runtime() {
  stop();
  // What waits in one place may own a strand or a timer of another, so all are
  // emptied while all are there.
  contexts_->poller.drop();
  contexts_->io.dropWork();
  contexts_->concurrent.dropWork();
}

Executor Runtime::io() const {
  return contexts_->io.get_executor();
}

Executor Runtime::concurrent() const {
  return contexts_->concurrent.get_executor();
}

Poller& Runtime::poller() const {
  return contexts_->poller;
}

void Runtime::stop() {
  contexts_->poller.stop();
  contexts_->io.stop();
  contexts_->concurrent.stop();
  for (auto& thread : contexts_->threads) {
    if (thread.joinable()) thread.join();
  }
}

std::unique_ptr<MainLoop> makeHeadlessMainLoop() {
  return std::make_unique<HeadlessMainLoop>();
}

}  // namespace vorlane
