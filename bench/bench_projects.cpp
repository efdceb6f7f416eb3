// A list of 500 projects of 1 MB against the same SELECT by the sqlite3 library alone, with
// the index that the store makes and without it; and a batch of 1 000 shape operations
// against the parse and the sorted write of its scene.
#include "base/JSON.h"
#include "bench/LocalAgent.h"
#include "bench/Measure.h"
#include "store/ScenewardSceneSeed.h"

#include <fmt/format.h>
#include <sqlite3.h>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/use_future.hpp>

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

namespace vorlane {
namespace {

constexpr int projects = 500;
constexpr int shapes = 5000;
constexpr int operations = 1000;

template <class T>
T await(const bench::LocalAgent& agent, std::function<Task<T>()> work) {
  return boost::asio::co_spawn(agent.concurrent(), std::move(work), boost::asio::use_future).get();
}

/// The file in the hands of the library alone.
class BareSQLite {
 public:
  explicit BareSQLite(const std::string& path) { sqlite3_open(path.c_str(), &db_); }
  ~BareSQLite() { sqlite3_close(db_); }
  BareSQLite(const BareSQLite&) = delete;
  BareSQLite& operator=(const BareSQLite&) = delete;

  void run(const char* sql) {
    if (sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) != SQLITE_OK) std::abort();
  }
  /// Reads every column of the list into memory. The number of rows.
  int list() {
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(db_,
                       "SELECT id, title, updated_at, synced_at FROM sceneward_projects\n"
                       "WHERE owner_id = 'bench' ORDER BY updated_at DESC",
                       -1, &statement, nullptr);
    std::vector<std::array<std::string, 4>> rows;
    while (sqlite3_step(statement) == SQLITE_ROW) {
      auto& row = rows.emplace_back();
      for (int column = 0; column < 4; ++column) {
        const auto* text = sqlite3_column_text(statement, column);
        if (text != nullptr) row[static_cast<std::size_t>(column)] = reinterpret_cast<const char*>(text);
      }
    }
    sqlite3_finalize(statement);
    return static_cast<int>(rows.size());
  }

 private:
  sqlite3* db_ = nullptr;
};

void listProjects(const bench::LocalAgent& agent, BareSQLite& bare, const char* what, int rounds) {
  const auto handler = agent.registry().tool("sceneward_list_projects")->handler;
  const auto times = await<bench::Pair>(agent, [&]() -> Task<bench::Pair> {
    std::vector<double> ours, floor;
    for (int round = 0; round < rounds; ++round) {
      const auto start = std::chrono::steady_clock::now();
      const auto answer = co_await handler({}, {.userID = "bench"});
      ours.push_back(bench::Seconds(std::chrono::steady_clock::now() - start).count());
      if (answer.at("count").to_number<int>() != projects) std::abort();
      floor.push_back(bench::secondsFor([&] {
        if (bare.list() != projects) std::abort();
      }));
    }
    co_return bench::Pair{bench::percentile(ours, 0.5), bench::percentile(floor, 0.5)};
  });
  fmt::print(
      "sceneward_list_projects {}: {:.3f} ms; the SELECT alone: {:.3f} ms; ratio {:.2f} (at most 1.3)\n",
      what, times.ours * 1e3, times.floor * 1e3, times.ratio());
}

void benchList(const bench::LocalAgent& agent) {
  const std::string data = "{\"notes\":\"" + std::string(1'000'000, 'x') + "\"}";
  for (int i = 0; i < projects; ++i) {
    ScenewardProjectRow row{.id = fmt::format("6f9619ff-8b86-4011-b42d-{:012}", i),
                            .ownerID = "bench",
                            .title = fmt::format("Scene {}, the harbour by night", i),
                            .data = data,
                            .createdAt = now(),
                            .updatedAt = now() + std::chrono::milliseconds(i)};
    if (i % 2 == 0) row.syncedAt = row.updatedAt;
    await<void>(agent, [&] { return agent.scenes().save(row); });
  }
  BareSQLite bare(agent.folder() / "Vorlane.sqlite");
  listProjects(agent, bare, "with its index", 200);
  bare.run("DROP INDEX idx_sceneward_projects_listing");
  listProjects(agent, bare, "without it", 11);
  const auto made = bench::secondsFor([&] { AgentStore(agent.folder().string()); });
  fmt::print("opening the store, which makes the index of these projects once: {:.0f} ms\n", made * 1e3);
}

std::string shapeID(int i) {
  return fmt::format("6F9619FF-8B86-D011-B42D-{:012}", i);
}

JSONMap shapeOf(int i) {
  return {{"id", shapeID(i)},
          {"kind", i % 3 == 0 ? "light" : "wall"},
          {"name", fmt::format("Shape {}", i)},
          {"points", {{{"x", i * 0.25}, {"y", i * 0.5}}, {{"x", i + 0.75}, {"y", i + 1.5}}}},
          {"rotation", i % 360},
          {"style", {{"fill", "#aabbcc"}, {"opacity", 0.5}, {"locked", false}}}};
}

JSONArray mixedOperations() {
  JSONArray ops;
  for (int i = 0; i < operations; ++i) {
    // Spread over the scene, so that a search from the front would meet its middle.
    const auto target = shapeID(i * 4 + 1);
    if (i % 5 < 2) {
      ops.push_back({{"op", "create_shape"}, {"shape", shapeOf(shapes + i)}});
    } else if (i % 5 < 4) {
      ops.push_back(
          {{"op", "update_shape"}, {"shapeId", target}, {"patch", {{"rotation", i}, {"note", "n"}}}});
    } else {
      ops.push_back({{"op", "delete_shape"}, {"shapeId", target}});
    }
  }
  return ops;
}

void benchBatch(const bench::LocalAgent& agent) {
  auto scene = ScenewardSceneSeed::document({});
  for (int i = 0; i < shapes; ++i) {
    auto shape = shapeOf(i);
    ScenewardSceneSeed::assignLayer(shape, scene);
    scene["shapes"].as_array().push_back(std::move(shape));
  }
  const auto text = writeJSON(scene);
  const auto handler = agent.registry().tool("sceneward_bulk_apply")->handler;
  const JSONMap arguments{{"sceneId", "batch"}, {"ops", mixedOperations()}};
  const auto present = now();
  await<void>(agent, [&] { return agent.scenes().save({"batch", "batches", "B", text, present, present}); });
  const auto times = await<bench::Pair>(agent, [&]() -> Task<bench::Pair> {
    std::vector<double> ours, floor;
    for (int round = 0; round < 60; ++round) {
      co_await agent.scenes().replaceData("batch", text);
      auto taken = arguments;
      const auto start = std::chrono::steady_clock::now();
      const auto answer = co_await handler(std::move(taken), {.userID = "bench"});
      ours.push_back(bench::Seconds(std::chrono::steady_clock::now() - start).count());
      if (answer.at("applied").to_number<int>() != operations) std::abort();
      floor.push_back(bench::secondsFor([&] {
        if (writeJSON(parseJSON(text)).size() != text.size()) std::abort();
      }));
    }
    co_return bench::Pair{bench::percentile(ours, 0.5), bench::percentile(floor, 0.5)};
  });
  fmt::print(
      "sceneward_bulk_apply, {} operations on {} shapes ({} bytes): {:.2f} ms; parse and sorted write: "
      "{:.2f} ms; ratio {:.2f} (at most 2)\n",
      operations, shapes, text.size(), times.ours * 1e3, times.floor * 1e3, times.ratio());
}

}  // namespace
}  // namespace vorlane

int main() {
  const vorlane::bench::LocalAgent agent;
  vorlane::benchBatch(agent);
  vorlane::benchList(agent);
  return 0;
}
