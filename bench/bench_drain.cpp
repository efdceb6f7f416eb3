// A thousand queued Cloud Saves of 1 MiB drained to the local cloud, against hashing each
// payload once and sending it by libcurl alone on one connection. Takes other numbers of saves
// and bytes as arguments.
#include "base/Encodings.h"
#include "base/NotificationCenter.h"
#include "base/SHA256.h"
#include "base/tasks/Runtime.h"
#include "bench/BareCurl.h"
#include "bench/CloudProcess.h"
#include "bench/Measure.h"
#include "platform/Platform.h"
#include "store/AgentStore.h"
#include "sync/ScenewardPusher.h"
#include "tests/support/CheckpointPayload.h"

#include <curl/curl.h>
#include <fmt/format.h>
#include <malloc.h>
#include <stdlib.h>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/use_future.hpp>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace vorlane {
namespace {

struct Save {
  std::string project, payload;
};

/// Bytes without a pattern, as a project's archive has them, and one project for each save.
std::vector<Save> makeSaves(int count, std::size_t bytes) {
  std::string archive(bytes / 4 * 3, '\0');
  std::uint64_t state = 88172645463325252U;
  for (char& c : archive) {
    state ^= state << 13, state ^= state >> 7, state ^= state << 17;
    c = static_cast<char>(state);
  }
  std::vector<Save> saves;
  for (int i = 0; i < count; ++i) {
    archive[static_cast<std::size_t>(i) % archive.size()] ^= 1;
    const auto project = newLowercaseUUID();
    saves.push_back({project, checkpointPayload(project, newLowercaseUUID(), 0, archive)});
  }
  return saves;
}

double drain(bench::CloudProcess& cloud, const std::filesystem::path& folder,
             const std::vector<Save>& saves) {
  Runtime runtime;
  const auto await = [&](auto task) {
    return boost::asio::co_spawn(runtime.concurrent(), std::move(task), boost::asio::use_future).get();
  };
  const auto network = makeURLSession(cloud.caFile);
  const ScenewardCheckpointQueue queue(std::make_shared<AgentStore>(folder.string()));
  for (const auto& [project, payload] : saves) await(queue.enqueue(cloud.owner, project, payload));
  NotificationCenter notifications;
  const auto account = std::make_shared<const Account>(
      Account{[] { return bench::CloudProcess::owner; }, [] { return std::int64_t{0}; }});
  const auto pusher = std::make_shared<ScenewardPusher>(
      queue,
      ScenewardPushClient{{.base = cloud.base,
                           .send = [&](URLRequest request) { return network->send(std::move(request)); },
                           .bearer = [&]() -> Task<std::optional<std::string>> { co_return cloud.token; },
                           .account = account},
                          [](URLRequest&) {}},
      notifications, std::make_shared<SyncJournal>(),
      [](std::string_view line) { fmt::print("{}\n", line); });
  std::size_t pushed = 0;
  const auto seconds = bench::secondsFor([&] { pushed = await(pusher->runOnce()).size(); });
  if (pushed != saves.size() || queue.counts(cloud.owner).pending != 0) std::abort();
  return seconds;
}

double sendAlone(bench::CloudProcess& cloud, const std::vector<Save>& saves) {
  bench::BareCurl bare(cloud.caFile);
  return bench::secondsFor([&] {
    for (const auto& [project, payload] : saves) {
      if (sha256Hex(payload).empty()) std::abort();
      bare.send(
          {.method = "PUT",
           .url = cloud.base + "/api/v1/projects/" + project + "/checkpoints",
           .headers = {{"Authorization", "Bearer " + cloud.token}, {"Content-Type", "application/json"}},
           .body = payload});
    }
  });
}

void run(int count, std::size_t bytes) {
  char name[] = "/tmp/vorlane-bench-XXXXXX";
  const std::filesystem::path folder = ::mkdtemp(name);
  {
    bench::CloudProcess cloud(folder / "cloud");
    const auto saves = makeSaves(count, bytes);
    cloud.removeDocuments();
    const auto floor = sendAlone(cloud, saves);
    cloud.removeDocuments();
    const auto ours = drain(cloud, folder, saves);
    fmt::print(
        "draining {} saves of {} bytes: {:.0f} ms; SHA-256 and libcurl alone: {:.0f} ms; ratio {:.2f} (at most "
        "1.3)\n",
        count, saves.front().payload.size(), ours * 1e3, floor * 1e3, ours / floor);
  }
  std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace vorlane

int main(int count, char** words) {
  ::mallopt(M_ARENA_MAX, 2);  // as the agent has it
  curl_global_init(CURL_GLOBAL_DEFAULT);
  vorlane::run(count > 1 ? std::atoi(words[1]) : 1000,
               count > 2 ? static_cast<std::size_t>(std::atoll(words[2])) : std::size_t{1} << 20);
}
