#pragma once

#include "base/tasks/Runtime.h"
#include "store/AgentStore.h"
#include "store/LedgerlyQueries.h"
#include "store/StoreNotifications.h"
#include "support/FakeSignalCenter.h"

#include <gmock/gmock.h>
#include <sqlite3.h>
#include <stdlib.h>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/use_future.hpp>

#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <string>

namespace vorlane {

using ::testing::HasSubstr;

/// A folder that goes with the object.
struct TemporaryFolder {
  TemporaryFolder() {
    char name[] = "/tmp/vorlane-store-XXXXXX";
    path = mkdtemp(name);
  }
  ~TemporaryFolder() { std::filesystem::remove_all(path); }
  std::string database() const { return path + "/Vorlane.sqlite"; }
  std::string path;
};

/// The file as another program of the family opens it.
class OtherProgram {
 public:
  explicit OtherProgram(const std::string& path) { sqlite3_open(path.c_str(), &database_); }
  ~OtherProgram() { sqlite3_close(database_); }
  OtherProgram(const OtherProgram&) = delete;
  OtherProgram& operator=(const OtherProgram&) = delete;

  /// Runs the statements and returns every row, columns joined by '|', rows by blanks.
  std::string run(const std::string& sql) {
    std::string rows;
    const auto add = [](void* out, int count, char** values, char**) {
      auto& text = *static_cast<std::string*>(out);
      for (int i = 0; i < count; ++i) {
        if (i > 0 || !text.empty()) text += i > 0 ? '|' : ' ';
        text += values[i] == nullptr ? "-" : values[i];
      }
      return 0;
    };
    if (sqlite3_exec(database_, sql.c_str(), add, &rows, nullptr) == SQLITE_OK) return rows;
    return std::string("error: ") + sqlite3_errmsg(database_);
  }

 private:
  sqlite3* database_ = nullptr;
};

/// The description of what `call` throws, or "nothing".
std::string failureOf(const std::invocable auto& call) {
  try {
    call();
    return "nothing";
  } catch (const std::exception& error) {
    return describe(error);
  }
}

/// One value kept for a whole test: a folder for the store, a clock and signals.
class StoreTest : public ::testing::Test {
 protected:
  std::shared_ptr<AgentStore> open() { return std::make_shared<AgentStore>(folder.path); }
  template <class Queries = LedgerlyQueries>
  Queries queriesOn(std::shared_ptr<AgentStore> store) {
    return {std::move(store), std::make_shared<StoreNotifications>(signals, runtime.io()),
            [this] { return present; }};
  }
  template <class T>
  std::future<T> start(Task<T> task) {
    return boost::asio::co_spawn(runtime.concurrent(), std::move(task), boost::asio::use_future);
  }
  template <class T>
  T await(Task<T> task) {
    return start(std::move(task)).get();
  }
  std::string inFile(const std::string& sql) { return OtherProgram(folder.database()).run(sql); }
  /// How many changes of the owner "o" were signalled since this was last asked.
  int newSignals() {
    const int all = signals->posts(watched);
    return all - std::exchange(seenSignals, all);
  }

  TemporaryFolder folder;
  std::shared_ptr<testing::FakeSignalCenter> signals = std::make_shared<testing::FakeSignalCenter>();
  std::string watched = "com.vorlane.store.ledgerly.o.changed";
  int seenSignals = 0;
  Date present = *dateFromStorage("2026-03-01 12:00:00.000");
  Runtime runtime;
};

}  // namespace vorlane
