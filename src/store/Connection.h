#pragma once

#include "store/Row.h"
#include "store/SQLArgument.h"

#include <chrono>
#include <functional>
#include <list>
#include <span>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace vorlane {

/// Sees one row of a query; false ends the query.
using RowVisitor = std::function<bool(const Row&)>;

/// One connection to the database file, with the statements that it has prepared.
/// Used by one thread at a time. All failures are DatabaseFailure.
class Connection {
 public:
  enum class Access { readWrite, readOnly };

  /// Opens the file; a readWrite connection makes it when it is missing and puts it
  /// into write-ahead-log mode. `busyTimeout` is how long a statement waits for a lock.
  Connection(const std::string& path, Access access, std::chrono::milliseconds busyTimeout);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  /// Runs the one statement of `sql` to its end, or until `visit` answers false.
  void run(std::string_view sql, std::span<const SQLArgument> arguments, const RowVisitor* visit);
  void run(std::string_view sql) { run(sql, {}, nullptr); }
  /// Rows that the last INSERT, UPDATE or DELETE touched.
  std::int64_t changes() const;

  /// "BEGIN", or "BEGIN IMMEDIATE" and the like.
  void begin(std::string_view sql);
  /// When the commit fails nothing is left open: the transaction is rolled back.
  void commit();
  void rollback() noexcept;
  bool inTransaction() const;
  void setBusyTimeout(std::chrono::milliseconds timeout);

  /// Gives back the pages that the connection keeps in memory, when they are many.
  void dropLargeCache() noexcept;

  /// Whether the database is no longer the file at its path.
  bool isMoved() const;
  /// Leaves the write-ahead log where it is when the last connection closes. Else it is moved
  /// into the file, and whatever lies at its path is removed.
  void keepLogOnClose(bool keep);

  /// Leaves it to the caller to move the write-ahead log into the file; a commit would
  /// else do that now and then before it returns, and wait for the disk.
  void deferCheckpoints();
  /// Moves it if it has grown long. What cannot be moved now, since a reader needs it or
  /// the disk refuses, is moved another time.
  void checkpointIfDue() noexcept;
  void checkpoint() noexcept;

 private:
  struct Prepared {
    std::string sql;
    sqlite3_stmt* statement = nullptr;
    bool inUse = false;
  };
  class Lease;

  void enterWriteAheadLog(std::chrono::milliseconds patience);
  sqlite3_stmt* prepare(std::string_view sql);
  [[noreturn]] void fail(std::string_view doing = "") const;
  void close() noexcept;

  sqlite3* database_ = nullptr;
  std::list<Prepared> prepared_;  // the most recently used first
  bool transactionExpected_ = false;
  /// The pages in the write-ahead log after the last commit.
  int logPages_ = 0;
};

}  // namespace vorlane
