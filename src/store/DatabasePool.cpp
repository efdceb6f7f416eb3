#include "store/DatabasePool.h"

#include "base/tasks/BlockingThread.h"
#include "store/DatabaseFailure.h"
#include "store/ProgrammingFault.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace vorlane {
namespace {

/// The writes that the writer thread has not yet let go of.
class Unfinished {
 public:
  void begin() {
    const std::scoped_lock hold(lock_);
    ++count_;
  }
  void end() {
    const std::scoped_lock hold(lock_);
    if (--count_ == 0) none_.notify_all();
  }
  void waitForNone() {
    std::unique_lock hold(lock_);
    none_.wait(hold, [this] { return count_ == 0; });
  }

 private:
  std::mutex lock_;
  std::condition_variable none_;
  std::size_t count_ = 0;
};

}  // namespace

using std::chrono::milliseconds;

struct DatabasePool::Core final : DatabaseFile::Pool {
  const Preparation prepare;
  const Options options;
  const std::shared_ptr<DatabaseFile> file;
  /// Used by the writer thread alone once the pool is made; null after a failure that left
  /// it in an unknown state, and when the file was taken away.
  std::unique_ptr<Connection> writer;
  std::atomic<std::size_t> waiting = 0;
  const std::shared_ptr<Unfinished> unfinished = std::make_shared<Unfinished>();

  std::mutex lock;
  std::vector<std::unique_ptr<Connection>> idleReaders;

  /// Last, so that it is joined before what it uses goes.
  BlockingThread thread{"store-writer"};

  Core(const std::string& path, Preparation given, Options chosen)
      : prepare(std::move(given)), options(chosen), file(DatabaseFile::at(path)) {
    file->add(*this);
  }
  ~Core() {
    file->remove(*this);
    if (writer && !file->isInPlace()) writer->keepLogOnClose(true);
  }
  Core(const Core&) = delete;
  Core& operator=(const Core&) = delete;

  void openWriter() {
    const DatabaseFile::Use use(*file);
    writer = file->open(Connection::Access::readWrite, options.busyTimeout, prepare);
    writer->deferCheckpoints();
  }

  std::unique_ptr<Connection> takeReader() {
    {
      const std::scoped_lock hold(lock);
      if (!idleReaders.empty()) {
        auto reader = std::move(idleReaders.back());
        idleReaders.pop_back();
        return reader;
      }
    }
    // Nobody waits for a reader: each thread has at most the few that it nests.
    return file->open(Connection::Access::readOnly, options.busyTimeout);
  }

  void closeConnections(bool saveLog) noexcept override {
    if (writer && saveLog) writer->checkpoint();
    if (writer) writer->keepLogOnClose(true);
    writer.reset();
    const std::scoped_lock hold(lock);
    idleReaders.clear();
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

  PendingWrite::Calls commit(PendingWrite& write) {
    const DatabaseFile::Use use(*file);
    try {
      begin(write);
      Database database(*writer);
      write.perform(database);
      // Once while it can be taken back, and once more before anybody is told of it.
      file->requireInPlace();
      writer->commit();
      file->requireInPlace();
      return database.takeAfterCommit();
    } catch (...) {
      if (writer) writer->rollback();
      if (writer && writer->inTransaction()) {
        writer->keepLogOnClose(true);  // which is still the log of who reads
        writer.reset();
      }
      file->requireInPlace();  // a database without its files fails in many words
      throw;
    }
  }

  void perform(PendingWrite& write) {
    std::exception_ptr failure;
    PendingWrite::Calls afterCommit;
    try {
      afterCommit = commit(write);
    } catch (...) {
      failure = std::current_exception();
    }
    if (DatabaseFile::isReplaced(failure)) file->closeIfReplaced(options.busyTimeout);
    write.finish(failure, std::move(afterCommit));
    // The asker has its answer; only now does the log go into the file.
    const DatabaseFile::Use use(*file);
    if (writer) writer->checkpointIfDue();
  }
};

DatabasePool::DatabasePool(std::string path, Preparation prepare, Options options)
    : core_(std::make_shared<Core>(path, std::move(prepare), options)) {
  // Another pool may not have noticed yet that the file is another one.
  core_->file->closeIfReplaced(options.busyTimeout);
  core_->openWriter();
}

DatabasePool::~DatabasePool() {
  // The last owner may be a piece of work; it cannot wait for itself, and keeps
  // the core until it has ended.
  if (core_->thread.isCurrentThread()) return;
  // After this the thread touches nothing but its own queue. Without it, it might
  // still be handing a result to an executor that goes right after the store.
  core_->unfinished->waitForNone();
}

void DatabasePool::requireOtherThread() const {
  if (!core_->thread.isCurrentThread()) return;
  programmingFault("store: write was called from inside a write of the same store, which would never end");
}

std::shared_ptr<PendingWrite> DatabasePool::queue(const std::shared_ptr<Core>& core,
                                                  PendingWrite::Work work) {
  if (core->waiting.fetch_add(1) >= core->options.queueLimit) {
    core->waiting.fetch_sub(1);
    throw DatabaseFailure(SQLITE_BUSY, "too many writes are waiting for the database");
  }
  auto write = std::make_shared<PendingWrite>(std::move(work));
  core->unfinished->begin();
  // The piece holds the core, so that no write is dropped when the last of the
  // store's users goes meanwhile.
  try {
    core->thread.post([core = core, write, unfinished = core->unfinished]() mutable {
      core->waiting.fetch_sub(1);
      core->perform(*write);
      write.reset();
      core.reset();
      unfinished->end();
    });
  } catch (...) {
    core->waiting.fetch_sub(1);
    core->unfinished->end();
    throw;
  }
  return write;
}

DatabasePool::Reading::Reading(std::shared_ptr<Core> core, Database::Statements allowed)
    : core_(std::move(core)), use_(*core_->file) {
  try {
    connection_ = core_->takeReader();
  } catch (...) {
    // The writer thread notices as well, and opens what is there now.
    if (DatabaseFile::isReplaced(std::current_exception())) queue(core_, [](Database&) {});
    throw;
  }
  if (allowed == Database::Statements::any) connection_->begin("BEGIN");
  database_.emplace(*connection_, allowed);
}

DatabasePool::Reading::~Reading() {
  // A read transaction has nothing to commit.
  connection_->rollback();
  if (connection_->inTransaction()) return;
  static const std::size_t kept = std::max(4U, std::thread::hardware_concurrency());
  const std::scoped_lock hold(core_->lock);
  auto& idle = core_->idleReaders;
  if (idle.size() >= kept) return;
  // The last one is the next to be taken, and the only one to keep what a large read left in it.
  if (!idle.empty()) idle.back()->dropLargeCache();
  idle.push_back(std::move(connection_));
}

}  // namespace vorlane
