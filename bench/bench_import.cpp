// A list of 20,000 items in one call: what it costs over the parse and the write of
// that payload that it cannot do without.
#include "base/JSON.h"
#include "bench/LocalAgent.h"
#include "bench/Measure.h"
#include "mcp/JSONRPCCodec.h"

#include <fmt/format.h>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/use_future.hpp>

#include <cstdlib>
#include <functional>
#include <string>

namespace vorlane {
namespace {

constexpr int rounds = 15;
constexpr int categoryCount = 100;
constexpr int itemsPerCategory = 200;

/// The arguments as an assistant writes them: no ids, a note, tags and a link each.
JSONMap payload(const std::string& sheetID) {
  JSONArray categories;
  for (int c = 0; c < categoryCount; ++c) {
    JSONArray items;
    for (int i = 0; i < itemsPerCategory; ++i) {
      items.push_back({{"name", fmt::format("Lens {} mm, set {}", 18 + i, c)},
                       {"qty", i % 7 + 1},
                       {"price", 12.5 + i},
                       {"notes", "Seen at the rental house;\n<b>insured</b> until Friday &amp; on hold."},
                       {"tags", {"camera", "rental"}},
                       {"vendor", "Rental & Sons"},
                       {"links",
                        {{{"url", fmt::format("https://rental.example/lens/{}-{}", c, i)},
                          {"title", "The rental's page"}}}}});
    }
    categories.push_back({{"name", fmt::format("Category {}", c)}, {"items", std::move(items)}});
  }
  JSONMap arguments{{"title", "A large one"}, {"categories", std::move(categories)}};
  if (!sheetID.empty()) arguments["sheetId"] = sheetID;
  return arguments;
}

/// Bytes to bytes against `floor`, in turns, both on one thread of the runtime.
Task<bench::Pair> measure(bench::LocalAgent& agent, const JSONMap& arguments,
                          const std::function<void()>& floor) {
  const auto request =
      writeJSON(JSONMap{{"jsonrpc", "2.0"},
                        {"id", 1},
                        {"method", "tools/call"},
                        {"params", {{"name", "ledgerly_import_sheet"}, {"arguments", arguments}}}});
  std::vector<double> ours, theirs;
  for (int round = 0; round < rounds; ++round) {
    const auto start = std::chrono::steady_clock::now();
    const auto answer =
        JSONRPCCodec::encodeResponse(co_await agent.server()->handle(JSONRPCCodec::decodeRequest(request)));
    ours.push_back(bench::Seconds(std::chrono::steady_clock::now() - start).count());
    if (answer.find("20000") == std::string::npos) std::abort();
    theirs.push_back(bench::secondsFor(floor));
  }
  co_return bench::Pair{bench::percentile(ours, 0.5), bench::percentile(theirs, 0.5)};
}

bench::Pair measured(bench::LocalAgent& agent, const JSONMap& arguments, const std::function<void()>& floor) {
  return boost::asio::co_spawn(
             agent.concurrent(), [&] { return measure(agent, arguments, floor); }, boost::asio::use_future)
      .get();
}

void run() {
  bench::LocalAgent agent;
  const auto asNew = payload(""), again = payload("sheet");
  const auto text = writeJSON(asNew);
  fmt::print("{} items in {} categories, {} bytes, {} rounds, medians\n", categoryCount * itemsPerCategory,
             categoryCount, text.size(), rounds);
  const auto made = measured(agent, asNew, [&] {
    if (writeJSON(parseJSON(text)).size() != text.size()) std::abort();
  });
  fmt::print("a new sheet: {:.1f} ms; parse and sorted write: {:.1f} ms; ratio {:.2f} (at most 3)\n",
             made.ours * 1e3, made.floor * 1e3, made.ratio());
  // What stood in the sheet is read as well, and what is written is larger than the payload.
  const auto replaced = measured(agent, again, [&] {
    const auto given = parseJSON(text);
    const auto stored = agent.queries().fetch("sheet")->data;
    if (writeJSON(parseJSON(stored)).size() != stored.size()) std::abort();
  });
  fmt::print("replacing it: {:.1f} ms; parse of both, write of the sheet: {:.1f} ms; ratio {:.2f}\n",
             replaced.ours * 1e3, replaced.floor * 1e3, replaced.ratio());
}

}  // namespace
}  // namespace vorlane

int main() {
  vorlane::run();
}
