// Documents of 1 MB: what a tool call costs over the parse and the write that it
// cannot do without.
#include "base/JSON.h"
#include "bench/LocalAgent.h"
#include "bench/Measure.h"
#include "mcp/JSONRPCCodec.h"
#include "store/LedgerlyQueries.h"

#include <fmt/format.h>
#include <sqlite3.h>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/use_future.hpp>

#include <cstdio>
#include <cstdlib>

namespace vorlane {
namespace {

constexpr int rounds = 60;

/// A sheet as people write them, grown to about a megabyte.
std::string largeSheet() {
  JSONArray categories;
  for (int c = 0; c < 40; ++c) {
    JSONArray items;
    for (int i = 0; i < 120; ++i) {
      items.push_back({{"id", fmt::format("6F9619FF-8B86-D011-B42D-{:012}", c * 1000 + i)},
                       {"name", fmt::format("Lens {} mm, set {}", 18 + i, c)},
                       {"checked", i % 3 == 0},
                       {"price", 12.5 + i},
                       {"qty", i % 7},
                       {"notes", "Collected on the morning of the shoot;\n<b>insured</b> until Friday."},
                       {"tags", {"camera", "rental"}}});
    }
    categories.push_back({{"id", fmt::format("cat-{}", c)},
                          {"name", fmt::format("Category {}", c)},
                          {"items", std::move(items)}});
  }
  return writeJSON(JSONMap{{"categories", std::move(categories)}});
}

template <class T>
T await(const bench::LocalAgent& agent, std::function<Task<T>()> work) {
  return boost::asio::co_spawn(agent.concurrent(), std::move(work), boost::asio::use_future).get();
}

/// One UPDATE of the same text on a connection with the store's own rules.
class BareSQLite {
 public:
  explicit BareSQLite(const std::string& path) {
    sqlite3_open(path.c_str(), &db_);
    sqlite3_exec(db_, "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL", nullptr, nullptr, nullptr);
    sqlite3_exec(db_, "CREATE TABLE t (id TEXT PRIMARY KEY, data TEXT); INSERT INTO t VALUES ('a','')",
                 nullptr, nullptr, nullptr);
    sqlite3_prepare_v2(db_, "UPDATE t SET data = ? WHERE id = 'a'", -1, &update_, nullptr);
  }
  ~BareSQLite() {
    sqlite3_finalize(update_);
    sqlite3_close(db_);
  }
  BareSQLite(const BareSQLite&) = delete;
  BareSQLite& operator=(const BareSQLite&) = delete;

  void update(const std::string& text) {
    sqlite3_bind_text(update_, 1, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
    sqlite3_step(update_);
    sqlite3_reset(update_);
  }

 private:
  sqlite3* db_ = nullptr;
  sqlite3_stmt* update_ = nullptr;
};

int run() {
  bench::LocalAgent agent;
  const auto queries = agent.queries();
  const auto text = largeSheet();
  LedgerlySheetRow row;
  row.id = "sheet";
  row.ownerID = "bench";
  row.title = "A large one";
  row.data = text;
  row.createdAt = row.updatedAt = now();
  await<void>(agent, [&] { return queries.save(row); });

  const std::string request =
      R"({"jsonrpc":"2.0","id":1,"method":"tools/call","params":{"name":"ledgerly_get_sheet","arguments":{"sheetId":"sheet"}}})";

  fmt::print("document: {} bytes, {} rounds, medians\n", text.size(), rounds);
  std::string answer;
  // Both sides run on a thread of the runtime, so that neither pays for a hop.
  const auto read = await<bench::Pair>(agent, [&]() -> Task<bench::Pair> {
    std::vector<double> ours, floor;
    for (int round = 0; round < rounds; ++round) {
      const auto start = std::chrono::steady_clock::now();
      answer =
          JSONRPCCodec::encodeResponse(co_await agent.server()->handle(JSONRPCCodec::decodeRequest(request)));
      ours.push_back(bench::Seconds(std::chrono::steady_clock::now() - start).count());
      floor.push_back(bench::secondsFor([&] {
        if (writeJSON(parseJSON(text)).size() != text.size()) std::abort();
      }));
    }
    co_return bench::Pair{bench::percentile(ours, 0.5), bench::percentile(floor, 0.5)};
  });
  fmt::print(
      "ledgerly_get_sheet, bytes to bytes: {:.2f} ms; parse and sorted write: {:.2f} ms; ratio {:.2f} (at "
      "most 1.3)\n",
      read.ours * 1e3, read.floor * 1e3, read.ratio());
  if (answer.size() < text.size()) return 1;

  BareSQLite bare(agent.folder() / "bare.sqlite");
  int checked = 0;
  const auto edit = bench::medians(
      rounds,
      [&] {
        await<int>(agent, [&] {
          return queries.mutateDocument("sheet", [count = ++checked](JSONMap& document) {
            document["edited"] = count;
            return count;
          });
        });
      },
      [&] {
        auto document = parseJSON(text);
        document.as_object()["edited"] = checked;
        bare.update(writeJSON(document));
      });
  fmt::print(
      "mutateDocument: {:.2f} ms; parse, write and one update: {:.2f} ms; ratio {:.2f} (at most 1.0)\n",
      edit.ours * 1e3, edit.floor * 1e3, edit.ratio());
  return 0;
}

}  // namespace
}  // namespace vorlane

int main() {
  return vorlane::run();
}
