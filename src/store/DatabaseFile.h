#pragma once

#include "store/Connection.h"

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>

namespace vorlane {

/// One database file as this process holds it, shared by all pools on it. Other programs may
/// remove the file or its write-ahead log, or rename another file over one of them, while it
/// is open. What is committed after that goes where nobody will ever read it, and SQLite would
/// replay the log that was left onto a file that it does not belong to. So every commit asks
/// whether the open files are those at the path; when they are not, all pools close, and what
/// is there now is opened anew. Callable from any thread.
class DatabaseFile {
 public:
  /// One pool, as far as the file has to know it.
  class Pool {
   public:
    /// Closes every connection, none of which is in use. `saveLog`: what the log holds is moved
    /// into the database first, since nobody else will ever find it.
    virtual void closeConnections(bool saveLog) noexcept = 0;

   protected:
    ~Pool() = default;
  };

  /// While one lives no connection of any pool is closed.
  class Use {
   public:
    explicit Use(DatabaseFile& file);
    ~Use();
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;

   private:
    DatabaseFile& file_;
  };

  explicit DatabaseFile(std::string path) : path_(std::move(path)) {}
  /// The one of that path in this process.
  static std::shared_ptr<DatabaseFile> at(const std::string& path);
  /// Whether the failure says that the files are not those that were opened.
  static bool isReplaced(const std::exception_ptr& failure);

  void add(Pool& pool);
  void remove(Pool& pool);

  /// Opens a connection and runs `prepare` on it. Throws DatabaseFailure, also when the file
  /// is not the one that other connections have open.
  std::unique_ptr<Connection> open(Connection::Access access, std::chrono::milliseconds busyTimeout,
                                   const std::function<void(Connection&)>& prepare = {});

  /// True also while nothing is open.
  bool isInPlace();
  /// Throws DatabaseFailure when the open files are not those at the path.
  void requireInPlace();

  /// When the files are not in place: closes all pools and renames what is left of the log at
  /// the path, if it is the very one that was open, to "….orphaned". Waits until no connection
  /// is in use, at most `patience`; what could not be done then is left to the next call. Logs
  /// one line each time that files are lost.
  void closeIfReplaced(std::chrono::milliseconds patience);

 private:
  /// Which file something is, whatever its name.
  struct Identity {
    dev_t device;
    ino_t inode;
    bool operator==(const Identity&) const = default;
    static std::optional<Identity> of(const std::string& path);
  };
  struct Files {
    std::optional<Identity> database, log, logIndex;
    bool operator==(const Files&) const = default;
  };

  Files filesAtPath() const;
  [[noreturn]] void fail() const;
  void setAside(const std::string& path, const std::optional<Identity>& held) const;

  const std::string path_;
  /// Closes the file to new users when there is none; false when there are.
  bool closeToUsers();

  std::mutex lock_;
  std::condition_variable unused_;
  /// How many use a connection, counted without the lock since every read does; `closed` for
  /// the moment in which the connections are closed, which holds the lock.
  static constexpr int closed = -1;
  std::atomic<int> users_ = 0;
  /// How many wait for the last user to go.
  std::atomic<int> awaiting_ = 0;
  std::set<Pool*> pools_;
  /// What the connections have open; nothing before the first one.
  std::optional<Files> held_;
  /// Where SQLite has the side files: beside what a symbolic link leads to.
  std::string logPath_, logIndexPath_;
  bool isLogged_ = false;
};

}  // namespace vorlane
