// The queue of Cloud Saves: what `enqueue` and `pending` cost over the hashing, decoding,
// parsing and storing that they cannot do without, each by the library's own call; and how
// often a payload is held in memory, seen in processes of their own.
#include "base/Encodings.h"
#include "base/JSON.h"
#include "base/SHA256.h"
#include "base/tasks/Runtime.h"
#include "bench/Measure.h"
#include "store/ScenewardCheckpointQueue.h"

#include <fmt/format.h>
#include <openssl/evp.h>
#include <sqlite3.h>
#include <stdlib.h>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/use_future.hpp>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace vorlane {
namespace {

constexpr std::size_t large = ScenewardCheckpointRequest::maximumPayload;
constexpr std::size_t medium = 10'000'000;
constexpr int mediumSaves = 10;

const std::string project = "bbbbbbbb-0000-4000-8000-000000000002";

std::string uuid(int number) {
  return fmt::format("aaaaaaaa-0000-4000-8000-{:012}", number);
}

/// A payload of exactly `size` bytes, nearly all of it the asset, as a project's archive
/// makes it: bytes without a pattern.
std::string payload(int operation, std::size_t size) {
  std::string archive((size - 1400) / 4 * 3, '\0');
  std::uint64_t state = static_cast<std::uint64_t>(operation) + 88172645463325252U;
  for (char& c : archive) {
    state ^= state << 13, state ^= state >> 7, state ^= state << 17;
    c = static_cast<char>(state);
  }
  auto text = fmt::format(
      R"({{"operationId":"{}","expectedRevision":3,"checkpoint":{{"schemaVersion":1,"id":"{}","projectDocument":)"
      R"({{"id":"{}","scenes":[{{}}]}},"contentHash":"{}","assets":[{{"kind":"project-archive","id":)"
      R"("project-archive","bytes":{},"sha256":"{}","data":"{}"}}]}}}})",
      uuid(operation), project, project, sha256Hex("x"), archive.size(), sha256Hex(archive),
      base64Encoded(archive));
  text.resize(size, ' ');
  return text;
}

void require(bool good) {
  if (!good) std::abort();
}

/// A folder of this run, and in it the queue.
class Bench {
 public:
  Bench() {
    char name[] = "/tmp/vorlane-bench-XXXXXX";
    folder_ = mkdtemp(name);
    store_ = std::make_shared<AgentStore>(folder_.string());
  }
  ~Bench() {
    store_.reset();
    std::filesystem::remove_all(folder_);
  }
  Bench(const Bench&) = delete;
  Bench& operator=(const Bench&) = delete;

  const std::filesystem::path& folder() const { return folder_; }
  ScenewardCheckpointQueue queue() const { return ScenewardCheckpointQueue(store_); }
  void enqueue(std::string text, const std::string& owner = "o") {
    boost::asio::co_spawn(runtime_.concurrent(), queue().enqueue(owner, project, std::move(text)),
                          boost::asio::use_future)
        .get();
  }
  /// Returns when what a write leaves to be done after its answer has been done.
  void settle() const {
    store_->dbWriter().write([](Database&) {});
  }

 private:
  std::filesystem::path folder_;
  Runtime runtime_;
  std::shared_ptr<AgentStore> store_;
};

/// The same insert on a connection with the store's own rules and table.
class BareSQLite {
 public:
  explicit BareSQLite(const std::string& path) {
    sqlite3_open(path.c_str(), &db_);
    run("PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; PRAGMA wal_autocheckpoint=0;"
        "CREATE TABLE q (operation_id TEXT NOT NULL, owner_id TEXT NOT NULL, project_id TEXT NOT NULL, "
        "payload BLOB NOT NULL, payload_hash TEXT NOT NULL, status TEXT NOT NULL DEFAULT 'pending', "
        "receipt BLOB, created_at DATETIME NOT NULL, PRIMARY KEY (owner_id, operation_id))");
    sqlite3_prepare_v2(db_, "INSERT INTO q VALUES (?,'o','p',?,'h','pending',NULL,'t')", -1, &insert_,
                       nullptr);
  }
  ~BareSQLite() {
    sqlite3_finalize(insert_);
    sqlite3_close(db_);
  }
  BareSQLite(const BareSQLite&) = delete;
  BareSQLite& operator=(const BareSQLite&) = delete;

  void insert(int id, std::string_view text) {
    sqlite3_bind_int(insert_, 1, id);
    sqlite3_bind_blob64(insert_, 2, text.data(), text.size(), SQLITE_STATIC);
    require(sqlite3_step(insert_) == SQLITE_DONE);
    sqlite3_reset(insert_);
  }
  /// As the store does it, after the answer.
  void settle() { sqlite3_wal_checkpoint_v2(db_, nullptr, SQLITE_CHECKPOINT_PASSIVE, nullptr, nullptr); }

 private:
  void run(const char* sql) { require(sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) == SQLITE_OK); }

  sqlite3* db_ = nullptr;
  sqlite3_stmt* insert_ = nullptr;
};

/// Parse, both digests and the decoding by the libraries' calls.
void checkPlainly(std::string_view text) {
  require(!sha256Hex(text).empty());
  const auto tree = parseJSON(text);
  const auto& data = tree.at("checkpoint").at("assets").at(0).at("data").get_string();
  std::string decoded(data.size() / 4 * 3, '\0');
  require(EVP_DecodeBlock(reinterpret_cast<unsigned char*>(decoded.data()),
                          reinterpret_cast<const unsigned char*>(data.data()),
                          static_cast<int>(data.size())) > 0);
  require(!sha256Hex(decoded).empty());
}

void benchEnqueue() {
  Bench bench;
  BareSQLite bare(bench.folder() / "bare.sqlite");
  const auto text = payload(1, large);
  std::vector<double> ours, floor;
  for (int round = 0; round < 9; ++round) {
    auto taken = text;
    ours.push_back(
        bench::secondsFor([&] { bench.enqueue(std::move(taken), fmt::format("owner {}", round)); }));
    bench.settle();
    floor.push_back(bench::secondsFor([&] {
      checkPlainly(text);
      bare.insert(round, text);
    }));
    bare.settle();
  }
  const bench::Pair times{bench::percentile(ours, 0.5), bench::percentile(floor, 0.5)};
  fmt::print(
      "enqueue, {} bytes: {:.0f} ms; parse, SHA-256 of payload and asset, base64 and one insert: {:.0f} ms; "
      "ratio {:.2f} (at most 1.5)\n",
      text.size(), times.ours * 1e3, times.floor * 1e3, times.ratio());
}

void benchPending() {
  Bench bench;
  std::vector<std::string> texts;
  for (int i = 0; i < mediumSaves; ++i) {
    texts.push_back(payload(i, medium));
    bench.enqueue(texts.back());
  }
  bench.settle();
  const auto queue = bench.queue();
  const auto measure = [&](const char* what) {
    const auto times = bench::medians(
        11, [&] { require(queue.pending("o").at(0).payload.size() == medium); },
        [&] {
          for (const auto& text : texts) checkPlainly(text);
        });
    fmt::print(
        "pending, {} saves of {} bytes, {}: {:.0f} ms; SHA-256, base64 and parse of the same bytes: {:.0f} "
        "ms; ratio {:.2f} (at most 1.3)\n",
        mediumSaves, medium, what, times.ours * 1e3, times.floor * 1e3, times.ratio());
  };
  measure("with its index");
  sqlite3* db = nullptr;
  sqlite3_open((bench.folder() / "Vorlane.sqlite").c_str(), &db);
  require(sqlite3_exec(db, "DROP INDEX idx_sceneward_checkpoint_pending", nullptr, nullptr, nullptr) ==
          SQLITE_OK);
  sqlite3_close(db);
  measure("without it");
}

/// The most memory that this process has held so far, in bytes.
std::size_t peak() {
  std::ifstream status("/proc/self/status");
  std::string word;
  std::size_t kilobytes = 0;
  while (status >> word) {
    if (word == "VmHWM:") status >> kilobytes;
  }
  return kilobytes * 1024;
}

/// In a process of its own: `file` holds the payload of an enqueue; without one the peak
/// is that of a read of the queue in `folder`.
int runMemory(const std::string& step, const std::string& folder) {
  Runtime runtime;
  const ScenewardCheckpointQueue queue(std::make_shared<AgentStore>(folder));
  const auto before = peak();
  if (step == "enqueue") {
    std::string text(large, '\0');
    std::ifstream(folder + "/payload", std::ios::binary).read(text.data(), static_cast<long>(large));
    boost::asio::co_spawn(runtime.concurrent(), queue.enqueue("o", project, std::move(text)),
                          boost::asio::use_future)
        .get();
  } else {
    require(queue.pending("o").at(0).payload.size() == large);
  }
  fmt::print("peak memory of {}, the payload included: {:.2f} times its {} bytes (at most 5)\n", step,
             static_cast<double>(peak() - before) / static_cast<double>(large), large);
  return 0;
}

void benchMemory() {
  const Bench bench;
  std::ofstream(bench.folder() / "payload", std::ios::binary) << payload(1, large);
  for (const char* step : {"enqueue", "pending"}) {
    std::fflush(stdout);
    const auto self = std::filesystem::read_symlink("/proc/self/exe").string();
    require(std::system(fmt::format("'{}' {} '{}'", self, step, bench.folder().string()).c_str()) == 0);
  }
}

}  // namespace
}  // namespace vorlane

int main(int count, char** words) {
  if (count == 3) return vorlane::runMemory(words[1], words[2]);
  vorlane::benchMemory();
  vorlane::benchEnqueue();
  vorlane::benchPending();
  return 0;
}
