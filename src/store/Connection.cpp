#include "store/Connection.h"

#include "store/DatabaseFailure.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <thread>

namespace vorlane {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// More than the store has statements, so that in practice none is prepared twice.
constexpr std::size_t preparedLimit = 64;

/// KiB of pages that a reader keeps: there are several, and each would keep the pages of a large
/// document for good. The one writer has SQLite's 2 MB. It reads a document and then compares its
/// pages with those that it writes, and those that are dirty have to fit.
constexpr char readerCacheSize[] = "PRAGMA cache_size = -512";

/// How long the write-ahead log may grow, about 4 MB, as SQLite has it by default.
constexpr int checkpointPages = 1000;

/// In bytes. What lists and small documents need stays below it.
constexpr int largeCache = 512 * 1024;

int bind(sqlite3_stmt* statement, int position, const SQLArgument::Value& value) {
  struct Binder {
    sqlite3_stmt* statement;
    int position;
    int operator()(std::nullptr_t) const { return sqlite3_bind_null(statement, position); }
    int operator()(std::int64_t number) const { return sqlite3_bind_int64(statement, position, number); }
    int operator()(double number) const { return sqlite3_bind_double(statement, position, number); }
    int operator()(std::string_view text) const {
      // A null pointer would bind NULL. No destructor: the text outlives the run.
      const char* bytes = text.data() == nullptr ? "" : text.data();
      return sqlite3_bind_text64(statement, position, bytes, text.size(), nullptr, SQLITE_UTF8);
    }
    int operator()(const std::string& text) const { return (*this)(std::string_view(text)); }
    int operator()(Blob blob) const {
      const char* bytes = blob.bytes.data() == nullptr ? "" : blob.bytes.data();
      return sqlite3_bind_blob64(statement, position, bytes, blob.bytes.size(), nullptr);
    }
  };
  return std::visit(Binder{statement, position}, value);
}

/// Before the first connection of the process. SQLite would else count its memory
/// under one lock, for which the readers of several threads queue. Where somebody has
/// used the library before, it refuses, and goes on counting.
void configureLibrary() {
  static const int once = sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
  static_cast<void>(once);
}

}  // namespace

/// A prepared statement for the length of one run. It goes back reset and without
/// its values, however the run ends.
class Connection::Lease {
 public:
  Lease(Connection& connection, std::string_view sql) : connection_(connection) {
    auto& prepared = connection.prepared_;
    const auto found = std::ranges::find_if(
        prepared, [&](const Prepared& candidate) { return !candidate.inUse && candidate.sql == sql; });
    if (found != prepared.end()) {
      prepared.splice(prepared.begin(), prepared, found);
    } else {
      prepared.push_front({std::string(sql), nullptr, false});
      try {
        prepared.front().statement = connection.prepare(sql);
      } catch (...) {
        prepared.pop_front();
        throw;
      }
    }
    entry_ = prepared.begin();
    entry_->inUse = true;
  }

  ~Lease() {
    sqlite3_reset(entry_->statement);
    sqlite3_clear_bindings(entry_->statement);
    entry_->inUse = false;
    auto& prepared = connection_.prepared_;
    if (prepared.size() <= preparedLimit || prepared.back().inUse) return;
    sqlite3_finalize(prepared.back().statement);
    prepared.pop_back();
  }
  Lease(const Lease&) = delete;
  Lease& operator=(const Lease&) = delete;

  sqlite3_stmt* statement() const { return entry_->statement; }

 private:
  Connection& connection_;
  std::list<Prepared>::iterator entry_;
};

Connection::Connection(const std::string& path, Access access, milliseconds busyTimeout) {
  configureLibrary();
  const int mode =
      access == Access::readOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
  const int status =
      sqlite3_open_v2(path.c_str(), &database_, mode | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE, nullptr);
  std::error_code ignored;
  try {
    if (std::filesystem::is_directory(path, ignored)) {
      throw DatabaseFailure(SQLITE_CANTOPEN_ISDIR, "cannot open " + path + ": it is a folder");
    }
    if (status != SQLITE_OK) fail("cannot open " + path);
    // SQLite falls back to reading when the file may not be written.
    if (access == Access::readWrite && sqlite3_db_readonly(database_, "main") == 1) {
      throw DatabaseFailure(SQLITE_READONLY, "cannot open " + path + ": it may not be written");
    }
    setBusyTimeout(busyTimeout);
    try {
      if (access == Access::readWrite) enterWriteAheadLog(busyTimeout);
      run("PRAGMA synchronous = NORMAL");
      run("PRAGMA foreign_keys = ON");
      if (access == Access::readOnly) run(readerCacheSize);
    } catch (const DatabaseFailure& error) {
      throw DatabaseFailure(static_cast<int>(error.code()),
                            "cannot open " + path + ": " + error.description());
    }
  } catch (...) {
    close();
    throw;
  }
}

Connection::~Connection() {
  close();
}

void Connection::close() noexcept {
  for (const auto& entry : prepared_) sqlite3_finalize(entry.statement);
  prepared_.clear();
  sqlite3_close(database_);
  database_ = nullptr;
}

void Connection::enterWriteAheadLog(milliseconds patience) {
  // Two processes that make the file at once collide here, and SQLite answers
  // "busy" at once, without asking the busy handler: waiting could deadlock.
  const auto deadline = steady_clock::now() + patience;
  for (;;) {
    try {
      std::string mode;
      const RowVisitor visit = [&](const Row& row) {
        mode = row.at<std::string>(0);
        return true;
      };
      run("PRAGMA journal_mode = WAL", {}, &visit);
      if (mode == "wal") return;
      throw DatabaseFailure(SQLITE_CANTOPEN, "no write-ahead log is possible here (mode " + mode + ")");
    } catch (const DatabaseFailure& error) {
      if (error.primaryCode() != SQLITE_BUSY || steady_clock::now() >= deadline) throw;
    }
    std::this_thread::sleep_for(milliseconds(5));
  }
}

void Connection::dropLargeCache() noexcept {
  int bytes = 0, highest = 0;
  sqlite3_db_status(database_, SQLITE_DBSTATUS_CACHE_USED, &bytes, &highest, 0);
  if (bytes > largeCache) sqlite3_db_release_memory(database_);
}

bool Connection::isMoved() const {
  int moved = 0;
  sqlite3_file_control(database_, "main", SQLITE_FCNTL_HAS_MOVED, &moved);
  return moved != 0;
}

void Connection::keepLogOnClose(bool keep) {
  sqlite3_db_config(database_, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, keep ? 1 : 0, nullptr);
}

void Connection::deferCheckpoints() {
  const auto note = [](void* connection, sqlite3*, const char*, int pages) {
    static_cast<Connection*>(connection)->logPages_ = pages;
    return SQLITE_OK;
  };
  sqlite3_wal_hook(database_, note, this);
}

void Connection::checkpointIfDue() noexcept {
  if (logPages_ >= checkpointPages) checkpoint();
}

void Connection::checkpoint() noexcept {
  logPages_ = 0;
  sqlite3_wal_checkpoint_v2(database_, nullptr, SQLITE_CHECKPOINT_PASSIVE, nullptr, nullptr);
}

sqlite3_stmt* Connection::prepare(std::string_view sql) {
  sqlite3_stmt* statement = nullptr;
  const char* tail = nullptr;
  const int status = sqlite3_prepare_v3(database_, sql.data(), static_cast<int>(sql.size()),
                                        SQLITE_PREPARE_PERSISTENT, &statement, &tail);
  if (status != SQLITE_OK) fail();
  const std::string_view rest(tail, sql.data() + sql.size());
  if (statement != nullptr && rest.find_first_not_of(" \t\r\n;") == std::string_view::npos) return statement;
  sqlite3_finalize(statement);
  throw DatabaseFailure(SQLITE_MISUSE, "exactly one statement is run at a time");
}

void Connection::run(std::string_view sql, std::span<const SQLArgument> arguments, const RowVisitor* visit) {
  // A full disk and the like roll the whole transaction back. Whoever went on
  // after such a failure would write bit by bit, each bit committed alone.
  if (transactionExpected_ && !inTransaction()) {
    throw DatabaseFailure(SQLITE_ABORT_ROLLBACK, "the transaction has already been rolled back");
  }
  const Lease lease(*this, sql);
  auto* statement = lease.statement();
  if (sqlite3_bind_parameter_count(statement) != static_cast<int>(arguments.size())) {
    throw DatabaseFailure(SQLITE_RANGE,
                          fmt::format("the statement takes {} values and was given {}",
                                      sqlite3_bind_parameter_count(statement), arguments.size()));
  }
  int position = 0;
  for (const auto& argument : arguments) {
    if (bind(statement, ++position, argument.value()) != SQLITE_OK) fail();
  }
  const Row row(statement);
  for (;;) {
    const int status = sqlite3_step(statement);
    if (status == SQLITE_DONE) return;
    if (status != SQLITE_ROW) fail();
    if (visit != nullptr && !(*visit)(row)) return;
  }
}

std::int64_t Connection::changes() const {
  return sqlite3_changes64(database_);
}

void Connection::begin(std::string_view sql) {
  run(sql);
  transactionExpected_ = true;
}

void Connection::commit() {
  try {
    run("COMMIT");
  } catch (...) {
    rollback();
    throw;
  }
  transactionExpected_ = false;
}

void Connection::rollback() noexcept {
  transactionExpected_ = false;
  if (!inTransaction()) return;
  try {
    run("ROLLBACK");
  } catch (const std::exception&) {
    // Whoever owns the connection asks inTransaction and drops it.
  }
}

bool Connection::inTransaction() const {
  return sqlite3_get_autocommit(database_) == 0;
}

void Connection::setBusyTimeout(milliseconds timeout) {
  sqlite3_busy_timeout(database_, static_cast<int>(timeout.count()));
}

void Connection::fail(std::string_view doing) const {
  const std::string message = database_ == nullptr ? "out of memory" : sqlite3_errmsg(database_);
  const int code = database_ == nullptr ? SQLITE_NOMEM : sqlite3_extended_errcode(database_);
  throw DatabaseFailure(code, doing.empty() ? message : fmt::format("{}: {}", doing, message));
}

}  // namespace vorlane
