#include "devcloud/DevCloud.h"

#include "base/tasks/Timing.h"
#include "devcloud/Certificates.h"
#include "devcloud/Control.h"
#include "devcloud/Faults.h"
#include "devcloud/Files.h"
#include "devcloud/Journal.h"
#include "devcloud/RequestLog.h"
#include "devcloud/Router.h"
#include "devcloud/Server.h"

#include <fmt/format.h>
#include <boost/asio/post.hpp>

#include <sys/stat.h>

#include <cstdio>
#include <future>

namespace vorlane::devcloud {
namespace {

/// The API that access tokens are for. Not the server's own address, so that
/// tokens stay good when it starts on another port.
constexpr std::string_view audience = "https://api.vorlane.test/";
/// Changes lie in the journal until there are so many bytes of them; then, and
/// at every start and stop, the whole state is written again.
constexpr std::uint64_t longestJournal = std::uint64_t{32} << 20;

std::filesystem::path preparedDirectory(const std::filesystem::path& directory) {
  const auto absolute = std::filesystem::absolute(directory);
  std::error_code error;
  if (std::filesystem::create_directories(absolute, error)) ::chmod(absolute.c_str(), 0700);
  if (error) throw Failure(fmt::format("cannot make {}: {}", absolute.string(), error.message()));
  return absolute;
}

}  // namespace

/// Everything there is between start and stop. The destructor ends the server
/// first: its pending work refers to the services.
struct DevCloud::Running {
  Running(const DevCloudOptions& options, const std::filesystem::path& directory)
      : clock(options.clock),
        stateFile(directory / "state.json"),
        journalFile(directory / "journal.jsonl"),
        lock(directory / "devcloud.lock"),
        journal(journalFile),
        server(std::make_unique<Server>(loadOrMakeCertificates(directory, now()), options.port)),
        services({.directory = directory,
                  .clock = clock,
                  .issuer = fmt::format("https://127.0.0.1:{}/", server->port()),
                  .audience = std::string(audience),
                  .adminClaimHost = options.adminClaimHost},
                 [this](std::string_view part, JSONValue change) { changed(part, std::move(change)); }),
        requests(services.get<RequestLog>()),
        faults(services.get<Faults>()) {
    restore();
    services.addRoutes(router);
  }

  ~Running() {
    server->stop();
    if (behind || journal.size() > 0) save();
    // Drops connections and waiting work while the services are still there.
    server.reset();
  }

  void restore() {
    if (const auto text = readFile(stateFile)) {
      reading(stateFile, [&] { services.restore(parseJSONMap(*text)); });
    }
    if (journal.size() == 0) return;
    reading(journalFile,
            [&] { journal.replay([this](const JSONMap& change) { services.restore(change); }); });
    save();
  }

  static void reading(const std::filesystem::path& file, const std::function<void()>& action) {
    try {
      action();
    } catch (const std::exception& error) {
      throw Failure(fmt::format("{} cannot be read: {}", file.string(), describe(error)));
    }
  }

  /// Notes a change before the request that made it is answered.
  void changed(std::string_view part, JSONValue change) {
    if (behind || journal.size() >= longestJournal) return save();
    try {
      journal.append({{part, std::move(change)}});
    } catch (const std::exception& error) {
      // What is in memory still serves; the next change tries to write it all.
      behind = true;
      fmt::print(stderr, "vorlane-devcloud: {}\n", describe(error));
    }
  }

  void save() {
    behind = true;
    try {
      replaceFile(stateFile, writeJSON(services.state()), 0600);
      journal.clear();
      behind = false;
    } catch (const std::exception& error) {
      fmt::print(stderr, "vorlane-devcloud: {}\n", describe(error));
    }
  }

  /// One request: recorded, led through its fault if there is one, answered.
  Task<Response> serve(Request request) {
    if (isControlPath(request.path)) {
      if (auto refusal = refuseForeignPage(request)) co_return std::move(*refusal);
      co_return co_await router.route(std::move(request));
    }
    requests.record(request, clock());
    const std::optional<Fault> fault = faults.take(request);
    if (!fault) co_return co_await router.route(std::move(request));

    if (fault->hold) co_await faults.held();
    if (fault->delay.count() > 0) co_await sleepFor(fault->delay);
    Response response;
    if (fault->replacesAnswer()) {
      if (fault->effect) co_await router.route(std::move(request));
      response = fault->answer();
    } else {
      response = co_await router.route(std::move(request));
    }
    if (fault->cut == FaultCut::before || fault->cut == FaultCut::after) response.cut = Cut::beforeAnswer;
    if (fault->cut == FaultCut::body) response.cut = Cut::inBody;
    co_return response;
  }

  const Clock clock;
  const std::filesystem::path stateFile;
  const std::filesystem::path journalFile;
  const FolderLock lock;
  Journal journal;
  std::unique_ptr<Server> server;
  const Services services;
  RequestLog& requests;
  Faults& faults;
  Router router;
  /// The files lack a change that is in memory.
  bool behind = false;
};

DevCloud::DevCloud(DevCloudOptions options) : options_(std::move(options)) {}

DevCloud::~DevCloud() {
  stop();
}

void DevCloud::start() {
  if (running_) throw Failure("the local cloud runs already");
  options_.directory = preparedDirectory(options_.directory);
  running_ = std::make_unique<Running>(options_, options_.directory);
  try {
    writeDeployment();
  } catch (...) {
    running_.reset();
    throw;
  }
  Running* const running = running_.get();
  running->server->run([running](Request request) { return running->serve(std::move(request)); });
}

void DevCloud::stop() {
  running_.reset();
}

void DevCloud::writeDeployment() const {
  JSONArray emails;
  for (const auto& email : options_.adminEmails) emails.emplace_back(email);
  const JSONMap deployment{{"identityDomain", fmt::format("127.0.0.1:{}", port())},
                           {"identityAudience", audience},
                           {"ledgerlyBase", base()},
                           {"scenewardBase", base()},
                           // A browser need not know our certificate to show the page.
                           {"renderWebBase", plainBase()},
                           {"renderOrigins", JSONArray{base(), plainBase()}},
                           {"updatesHost", base()},
                           {"adminEmails", std::move(emails)},
                           {"adminClaimHost", options_.adminClaimHost},
                           {"caFile", caFile().string()},
                           {"assumeOnline", true}};
  replaceFile(deploymentFile(), writeJSON(deployment) + "\n", 0644);
}

DevCloud::Running& DevCloud::running() const {
  if (!running_) throw Failure("the local cloud is not running");
  return *running_;
}

const Services& DevCloud::services() const {
  return running().services;
}

Executor DevCloud::executor() const {
  return running().server->executor();
}

void DevCloud::onServer(const std::function<void(const Services&)>& action) {
  Running& here = running();
  if (here.server->onServerThread()) return action(here.services);
  std::packaged_task<void()> task([&] { action(here.services); });
  auto result = task.get_future();
  // Wrapped: Asio would take the bare task's future for itself.
  boost::asio::post(here.server->executor(), [task = std::move(task)]() mutable { task(); });
  result.get();
}

std::uint16_t DevCloud::port() const {
  return running().server->port();
}

std::uint16_t DevCloud::plainPort() const {
  return running().server->plainPort();
}

std::string DevCloud::base() const {
  return fmt::format("https://127.0.0.1:{}", port());
}

std::string DevCloud::plainBase() const {
  return fmt::format("http://127.0.0.1:{}", plainPort());
}

std::filesystem::path DevCloud::caFile() const {
  return options_.directory / "ca.pem";
}

std::filesystem::path DevCloud::deploymentFile() const {
  return options_.directory / "deployment.json";
}

}  // namespace vorlane::devcloud
