#include "store/DatabasePool.h"

#include "base/tasks/BlockingThread.h"
#include "store/DatabaseFailure.h"
#include "store/Migrator.h"
#include "store/ProgrammingFault.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

namespace vorlane {

using std::chrono::milliseconds;

struct DatabasePool::Core {
  std::string path;
  Options options;
  /// Used by the writer thread alone once the pool is made; null after a failure
  /// that left it in an unknown state.
  std::unique_ptr<Connection> writer;
  std::atomic<std::size_t> waiting = 0;

  std::mutex lock;
  std::vector<std::unique_ptr<Connection>> idleReaders;

  /// Last, so that it is joined before what it uses goes.
  BlockingThread thread{"store-writer"};

  void openWriter() {
    writer = std::make_unique<Connection>(path, Connection::Access::readWrite, options.busyTimeout);
    writer->deferCheckpoints();
  }

  /// Waits for another process's lock until the write's own time is up, and looks
  /// at least once even then.
  void begin(const PendingWrite& write) {
    if (!writer) openWriter();
    const auto elapsed =
        std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - write.asked());
    writer->setBusyTimeout(std::max(options.busyTimeout - elapsed, milliseconds(10)));
    try {
      writer->begin("BEGIN IMMEDIATE");
    } catch (const DatabaseFailure& error) {
      if (error.primaryCode() != SQLITE_BUSY) throw;
      throw DatabaseFailure(static_cast<int>(error.code()),
                            fmt::format("{}: another program has kept it for more than {} seconds",
                                        error.description(), options.busyTimeout.count() / 1000.0));
    }
    writer->setBusyTimeout(options.busyTimeout);
  }

  void perform(PendingWrite& write) {
    std::exception_ptr failure;
    PendingWrite::Calls afterCommit;
    try {
      begin(write);
      Database database(*writer);
      write.perform(database);
      writer->commit();
      afterCommit = database.takeAfterCommit();
    } catch (...) {
      failure = std::current_exception();
      if (writer) writer->rollback();
      if (writer && writer->inTransaction()) writer.reset();
    }
    write.finish(failure, std::move(afterCommit));
    // The asker has its answer; only now does the log go into the file.
    if (writer) writer->checkpointIfDue();
  }
};

DatabasePool::DatabasePool(std::string path, const Migrator& migrator, Options options)
    : core_(std::make_shared<Core>()) {
  core_->path = std::move(path);
  core_->options = options;
  core_->openWriter();
  migrator.migrate(*core_->writer);
}

DatabasePool::~DatabasePool() {
  // The last owner may be a piece of work; it cannot wait for itself, and keeps
  // the core until it has ended.
  if (core_->thread.isCurrentThread()) return;
  // After this the thread touches nothing but its own queue. Without it, it might
  // still be handing a result to an executor that goes right after the store.
  auto drained = std::make_shared<std::promise<void>>();
  core_->thread.post([drained] { drained->set_value(); });
  drained->get_future().wait();
}

std::shared_ptr<PendingWrite> DatabasePool::queue(const std::shared_ptr<Core>& core, PendingWrite::Work work,
                                                  Asker asker) {
  if (asker == Asker::blocks && core->thread.isCurrentThread()) {
    programmingFault("store: write was called from inside a write of the same store, which would never end");
  }
  if (core->waiting.fetch_add(1) >= core->options.queueLimit) {
    core->waiting.fetch_sub(1);
    throw DatabaseFailure(SQLITE_BUSY, "too many writes are waiting for the database");
  }
  auto write = std::make_shared<PendingWrite>(std::move(work));
  // The piece holds the core, so that no write is dropped when the last of the
  // store's users goes meanwhile.
  try {
    core->thread.post([core, write] {
      core->waiting.fetch_sub(1);
      core->perform(*write);
    });
  } catch (...) {
    core->waiting.fetch_sub(1);
    throw;
  }
  return write;
}

DatabasePool::Reading::Reading(std::shared_ptr<Core> core) : core_(std::move(core)) {
  {
    const std::scoped_lock hold(core_->lock);
    if (!core_->idleReaders.empty()) {
      connection_ = std::move(core_->idleReaders.back());
      core_->idleReaders.pop_back();
    }
  }
  // Nobody waits for a reader: each thread has at most the few that it nests.
  if (!connection_) {
    connection_ =
        std::make_unique<Connection>(core_->path, Connection::Access::readOnly, core_->options.busyTimeout);
  }
  connection_->begin("BEGIN");
  database_ = std::make_unique<Database>(*connection_);
}

DatabasePool::Reading::~Reading() {
  // A read transaction has nothing to commit.
  connection_->rollback();
  if (connection_->inTransaction()) return;
  static const std::size_t kept = std::max(4U, std::thread::hardware_concurrency());
  const std::scoped_lock hold(core_->lock);
  if (core_->idleReaders.size() < kept) core_->idleReaders.push_back(std::move(connection_));
}

}  // namespace vorlane
