#pragma once

#include "base/tasks/Task.h"
#include "store/Database.h"
#include "store/DatabaseFile.h"
#include "store/PendingWrite.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

namespace vorlane {

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

  /// Brings the schema up to date, whenever the writer connection has opened the file.
  using Preparation = std::function<void(Connection&)>;

  /// Opens the file. Throws DatabaseFailure, and what `prepare` throws.
  DatabasePool(std::string path, Preparation prepare, Options options);
  /// Waits until every write that was asked for has been made or has failed, and the
  /// writer thread has let go of those who asked.
  ~DatabasePool();
  DatabasePool(const DatabasePool&) = delete;
  DatabasePool& operator=(const DatabasePool&) = delete;

  /// Runs `work(Database&)` on this thread over one snapshot of the database, beside
  /// other reads and writes. Returns its result. Throws DatabaseFailure also when the file
  /// was taken away, see DatabaseFile; a later read finds what is there then.
  template <class Work>
  auto read(Work work) const -> std::invoke_result_t<Work&, Database&> {
    const Reading reading(core_, Database::Statements::any);
    return work(reading.database());
  }

  /// The same for work that runs one statement, see Database::Statements: it is a snapshot by
  /// itself, and needs no transaction around it.
  template <class Work>
  auto readOne(Work work) const -> std::invoke_result_t<Work&, Database&> {
    const Reading reading(core_, Database::Statements::one);
    return work(reading.database());
  }

  /// Runs `work(Database&)` on the writer thread inside one transaction, which is committed
  /// or rolled back when the task ends. Writes run one at a time in the order in which they
  /// arrive. The work must own all that it uses, since the awaiter may be cancelled
  /// meanwhile; the write is then still made. Throws DatabaseFailure also when the file was
  /// taken away, see DatabaseFile; the next write goes into what is there then.
  template <class Work>
  auto writeAsync(Work work) const -> Task<std::invoke_result_t<Work&, Database&>> {
    return performed<std::invoke_result_t<Work&, Database&>>(core_, std::move(work));
  }

  /// The same for a thread that may block. Called from inside another write it would wait
  /// for itself: that ends the process.
  template <class Work>
  auto write(Work work) const -> std::invoke_result_t<Work&, Database&> {
    requireOtherThread();
    const Write<std::invoke_result_t<Work&, Database&>> write(core_, std::move(work));
    write.pending->wait();
    return write.result->take();
  }

 private:
  struct Core;
  /// A reader connection for the object's lifetime, inside a read transaction unless it is for
  /// one statement.
  class Reading {
   public:
    Reading(std::shared_ptr<Core> core, Database::Statements allowed);
    ~Reading();
    Reading(const Reading&) = delete;
    Reading& operator=(const Reading&) = delete;
    Database& database() const { return *database_; }

   private:
    std::shared_ptr<Core> core_;
    DatabaseFile::Use use_;
    std::unique_ptr<Connection> connection_;
    mutable std::optional<Database> database_;
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

  static std::shared_ptr<PendingWrite> queue(const std::shared_ptr<Core>& core, PendingWrite::Work work);
  void requireOtherThread() const;

  /// A write that was asked for, and where its work leaves its result.
  template <class R>
  struct Write {
    template <class Work>
    Write(const std::shared_ptr<Core>& core, Work work)
        : result(std::make_shared<Result<R>>()),
          pending(queue(core, [result = result, work = std::move(work)](Database& database) mutable {
            result->set(work, database);
          })) {}

    std::shared_ptr<Result<R>> result;
    std::shared_ptr<PendingWrite> pending;
  };

  template <class R, class Work>
  static Task<R> performed(std::shared_ptr<Core> core, Work work) {
    const Write<R> write(core, std::move(work));
    co_await PendingWrite::ended(write.pending);
    co_return write.result->take();
  }

  std::shared_ptr<Core> core_;
};

}  // namespace vorlane
