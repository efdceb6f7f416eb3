#pragma once

#include "base/tasks/Task.h"
#include "store/Database.h"
#include "store/PendingWrite.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

namespace vorlane {

class Migrator;

/// One database file: one writer connection with a thread of its own, and reader
/// connections as they are needed. Callable from any thread. Work that throws has
/// no effect, and its failure reaches whoever asked for it.
class DatabasePool {
 public:
  struct Options {
    /// How long a write waits for a lock that another process holds, counted from
    /// when it was asked for, so that writes which queue up behind one that waits
    /// do not each wait anew.
    std::chrono::milliseconds busyTimeout{10'000};
    /// Writes that may wait at once; more fail at once.
    std::size_t queueLimit = 4096;
  };

  /// Opens the file and brings its schema up to date. Throws DatabaseFailure.
  DatabasePool(std::string path, const Migrator& migrator, Options options);
  /// Waits until every write that was asked for has been made or has failed, and the
  /// writer thread has let go of those who asked.
  ~DatabasePool();
  DatabasePool(const DatabasePool&) = delete;
  DatabasePool& operator=(const DatabasePool&) = delete;

  /// Runs `work(Database&)` on this thread over one snapshot of the database, beside
  /// other reads and writes. Returns its result.
  template <class Work>
  auto read(Work work) const -> std::invoke_result_t<Work&, Database&> {
    const Reading reading(core_);
    return work(reading.database());
  }

  /// Runs `work(Database&)` on the writer thread inside one transaction and blocks
  /// until it is committed or rolled back. Writes run one at a time in the order in
  /// which they arrive. Called from inside another write it would wait for itself:
  /// that ends the process.
  template <class Work>
  auto write(Work work) const -> std::invoke_result_t<Work&, Database&> {
    Result<std::invoke_result_t<Work&, Database&>> result;
    queue(core_, [&](Database& database) { result.set(work, database); }, Asker::blocks)->wait();
    return result.take();
  }

  /// The same, for a task: it suspends and holds no thread. The work runs on the
  /// writer thread and must own all that it uses, since the awaiter may be cancelled
  /// meanwhile; the write is then still made.
  template <class Work>
  auto writeAsync(Work work) const -> Task<std::invoke_result_t<Work&, Database&>> {
    return awaitWrite<std::invoke_result_t<Work&, Database&>>(core_, std::move(work));
  }

 private:
  struct Core;
  enum class Asker { blocks, suspends };

  /// A reader connection inside a read transaction, for the object's lifetime.
  class Reading {
   public:
    explicit Reading(std::shared_ptr<Core> core);
    ~Reading();
    Reading(const Reading&) = delete;
    Reading& operator=(const Reading&) = delete;
    Database& database() const { return *database_; }

   private:
    std::shared_ptr<Core> core_;
    std::unique_ptr<Connection> connection_;
    std::unique_ptr<Database> database_;
  };

  template <class R>
  class Result {
   public:
    template <class Work>
    void set(Work& work, Database& database) {
      value_.emplace(work(database));
    }
    R take() { return std::move(*value_); }

   private:
    std::optional<R> value_;
  };

  template <class R>
    requires std::is_void_v<R>
  class Result<R> {
   public:
    template <class Work>
    void set(Work& work, Database& database) {
      work(database);
    }
    void take() {}
  };

  static std::shared_ptr<PendingWrite> queue(const std::shared_ptr<Core>& core, PendingWrite::Work work,
                                             Asker asker);

  template <class R, class Work>
  static Task<R> awaitWrite(std::shared_ptr<Core> core, Work work) {
    const auto result = std::make_shared<Result<R>>();
    auto owning = [result, work = std::move(work)](Database& database) mutable {
      result->set(work, database);
    };
    co_await PendingWrite::ended(queue(core, std::move(owning), Asker::suspends));
    co_return result->take();
  }

  std::shared_ptr<Core> core_;
};

}  // namespace vorlane
