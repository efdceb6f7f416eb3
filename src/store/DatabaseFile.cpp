#include "store/DatabaseFile.h"

#include "base/ShellLog.h"
#include "store/DatabaseFailure.h"

#include <fmt/format.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <cstdio>
#include <filesystem>
#include <map>

namespace vorlane {

DatabaseFile::Use::Use(DatabaseFile& file) : file_(file) {
  int users = file_.users_;
  for (;;) {
    if (users == closed) {
      const std::scoped_lock untilReopened(file_.lock_);
      users = file_.users_;
    } else if (file_.users_.compare_exchange_weak(users, users + 1)) {
      return;
    }
  }
}

DatabaseFile::Use::~Use() {
  if (file_.users_.fetch_sub(1) != 1 || file_.awaiting_ == 0) return;
  const std::scoped_lock hold(file_.lock_);
  file_.unused_.notify_all();
}

bool DatabaseFile::closeToUsers() {
  int none = 0;
  return users_.compare_exchange_strong(none, closed);
}

std::optional<DatabaseFile::Identity> DatabaseFile::Identity::of(const std::string& path) {
  struct stat info{};
  if (stat(path.c_str(), &info) != 0) return std::nullopt;
  return Identity{info.st_dev, info.st_ino};
}

std::shared_ptr<DatabaseFile> DatabaseFile::at(const std::string& path) {
  static std::mutex lock;
  static std::map<std::string, std::weak_ptr<DatabaseFile>> files;
  const std::scoped_lock hold(lock);
  auto file = files[path].lock();
  if (!file) files[path] = file = std::make_shared<DatabaseFile>(path);
  return file;
}

bool DatabaseFile::isReplaced(const std::exception_ptr& failure) {
  try {
    if (failure) std::rethrow_exception(failure);
  } catch (const DatabaseFailure& error) {
    return error.code() == SQLITE_READONLY_DBMOVED;
  } catch (...) {
  }
  return false;
}

void DatabaseFile::add(Pool& pool) {
  const std::scoped_lock hold(lock_);
  pools_.insert(&pool);
}

void DatabaseFile::remove(Pool& pool) {
  const std::scoped_lock hold(lock_);
  pools_.erase(&pool);
}

std::unique_ptr<Connection> DatabaseFile::open(Connection::Access access,
                                               std::chrono::milliseconds busyTimeout,
                                               const std::function<void(Connection&)>& prepare) {
  requireInPlace();  // before SQLite reads a log that another file may have left
  auto connection = std::make_unique<Connection>(path_, access, busyTimeout);
  connection->keepLogOnClose(true);
  if (prepare) prepare(*connection);
  {
    const std::scoped_lock hold(lock_);
    if (!held_) {
      std::error_code unknown;
      const auto real = std::filesystem::canonical(path_, unknown);
      const auto realPath = unknown ? path_ : real.string();
      logPath_ = realPath + "-wal";
      logIndexPath_ = realPath + "-shm";
      if (!connection->isMoved()) held_ = filesAtPath();
    }
    if (!held_ || *held_ != filesAtPath()) fail();
  }
  connection->keepLogOnClose(false);
  return connection;
}

bool DatabaseFile::isInPlace() {
  const std::scoped_lock hold(lock_);
  return !held_ || *held_ == filesAtPath();
}

void DatabaseFile::requireInPlace() {
  if (!isInPlace()) fail();
}

void DatabaseFile::fail() const {
  throw DatabaseFailure(SQLITE_READONLY_DBMOVED,
                        fmt::format("{} or its log was removed or replaced while it was open. Nothing was "
                                    "read or written; the next call finds what is there now.",
                                    path_));
}

void DatabaseFile::closeIfReplaced(std::chrono::milliseconds patience) {
  std::unique_lock hold(lock_);
  if (!held_ || *held_ == filesAtPath()) return;
  if (!std::exchange(isLogged_, true)) {
    shellLog(fmt::format(
        "store: {} or its log was removed or replaced while it was open; what is there now is opened anew",
        path_));
  }
  // Before the users are counted: the last of them looks at it after it has left their count.
  ++awaiting_;
  const bool isClosed = unused_.wait_for(hold, patience, [this] { return closeToUsers(); });
  --awaiting_;
  if (!isClosed) return;
  const auto found = filesAtPath();
  // With the database in place the log belongs to it, and what it holds was acknowledged.
  const bool isForeign = found.database != held_->database;
  for (auto* pool : pools_) pool->closeConnections(!isForeign && !found.log);
  if (isForeign) {
    setAside(logPath_, held_->log);
    setAside(logIndexPath_, held_->logIndex);
  }
  held_.reset();
  isLogged_ = false;
  users_ = 0;
}

DatabaseFile::Files DatabaseFile::filesAtPath() const {
  return {Identity::of(path_), Identity::of(logPath_), Identity::of(logIndexPath_)};
}

void DatabaseFile::setAside(const std::string& path, const std::optional<Identity>& held) const {
  if (held && Identity::of(path) == held) std::rename(path.c_str(), (path + ".orphaned").c_str());
}

}  // namespace vorlane
