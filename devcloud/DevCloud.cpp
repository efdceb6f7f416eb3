#include "devcloud/DevCloud.h"

#include "base/tasks/Spawn.h"
#include "base/tasks/Timing.h"
#include "devcloud/Accounts.h"
#include "devcloud/Certificates.h"
#include "devcloud/Control.h"
#include "devcloud/Files.h"
#include "devcloud/Router.h"
#include "devcloud/Server.h"
#include "devcloud/SigningKey.h"

#include <fmt/format.h>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/use_future.hpp>

#include <sys/stat.h>

#include <cstdio>
#include <future>

namespace vorlane::devcloud {
namespace {

/// The API that access tokens are for. Not the server's own address, so that
/// tokens stay good when it starts on another port.
constexpr std::string_view audience = "https://api.vorlane.test/";
/// Several changes at once become one write.
constexpr auto saveDelay = std::chrono::milliseconds(30);

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
        lock(directory / "devcloud.lock"),
        key(directory / "signing-key.pem"),
        server(std::make_unique<Server>(loadOrMakeCertificates(directory, now()), options.port)),
        people([this] { changed(); }),
        identity(people, key,
                 {fmt::format("https://127.0.0.1:{}/", server->port()), std::string(audience),
                  options.adminClaimHost},
                 clock, [this] { changed(); }),
        sheets(identity, clock, [this] { changed(); }) {
    restore();
    identity.addRoutes(router);
    addAccountRoutes(router, identity, clock);
    sheets.addRoutes(router);
    addControlRoutes(router, {people, identity, sheets, requests, faults});
  }

  ~Running() {
    server->stop();
    if (dirty) save();
    // Drops connections and waiting work while the services are still there.
    server.reset();
  }

  void restore() {
    const auto text = readFile(stateFile);
    if (!text) return;
    try {
      const JSONMap state = parseJSONMap(*text);
      people.restore(state.at("people").as_array());
      identity.restore(state.at("refreshTokens").as_array());
      sheets.restore(state.at("sheets").as_object());
    } catch (const std::exception& error) {
      throw Failure(fmt::format("{} cannot be read: {}", stateFile.string(), describe(error)));
    }
  }

  void changed() {
    if (std::exchange(dirty, true)) return;
    spawn(server->executor(), "saving the state", [this]() -> Task<> {
      co_await sleepFor(saveDelay);
      save();
    });
  }

  void save() {
    dirty = false;
    try {
      replaceFile(
          stateFile,
          writeJSON(JSONMap{
              {"people", people.state()}, {"refreshTokens", identity.state()}, {"sheets", sheets.state()}}),
          0600);
    } catch (const std::exception& error) {
      // What is in memory still serves; the next change tries again.
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
  const FolderLock lock;
  const SigningKey key;
  std::unique_ptr<Server> server;
  People people;
  Identity identity;
  Sheets sheets;
  RequestLog requests;
  Faults faults;
  Router router;
  /// A save is due.
  bool dirty = false;
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

template <class Action>
auto DevCloud::onServer(Action action) {
  Running& here = running();
  if (here.server->onServerThread()) return action(here);
  using Result = decltype(action(here));
  std::packaged_task<Result()> task([&here, &action] { return action(here); });
  auto result = task.get_future();
  // Wrapped: Asio would take the bare task's future for itself.
  boost::asio::post(here.server->executor(), [task = std::move(task)]() mutable { task(); });
  return result.get();
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

void DevCloud::putPerson(Person person) {
  onServer([&](Running& to) { to.people.put(std::move(person)); });
}

void DevCloud::removePerson(std::string_view sub) {
  onServer([&](Running& to) {
    to.identity.revoke(sub);
    to.sheets.removeAll(sub);
    to.people.remove(sub);
  });
}

IssuedTokens DevCloud::issueTokens(std::string_view sub, std::optional<std::int64_t> lifetime) {
  return onServer([&](Running& to) { return to.identity.issue(sub, lifetime); });
}

void DevCloud::revokeTokens(std::string_view sub) {
  onServer([&](Running& to) { to.identity.revoke(sub); });
}

std::vector<Sheet> DevCloud::sheets(std::string_view sub) {
  return onServer([&](Running& to) { return to.sheets.ownedBy(sub); });
}

Sheet DevCloud::putSheet(Sheet sheet) {
  return onServer([&](Running& to) -> Sheet { return to.sheets.put(std::move(sheet)); });
}

std::int64_t DevCloud::addFault(Fault fault) {
  return onServer([&](Running& to) { return to.faults.add(std::move(fault)); });
}

std::vector<Fault> DevCloud::faults() {
  return onServer([&](Running& to) { return to.faults.all(); });
}

void DevCloud::clearFaults() {
  onServer([&](Running& to) { to.faults.clear(); });
}

void DevCloud::release() {
  onServer([&](Running& to) { to.faults.release(); });
}

std::vector<RecordedRequest> DevCloud::requests(RequestFilter filter) {
  return onServer([&](Running& to) { return to.requests.find(filter); });
}

void DevCloud::clearRequests() {
  onServer([&](Running& to) { to.requests.clear(); });
}

std::vector<RecordedRequest> DevCloud::waitForRequests(RequestFilter filter, std::size_t count,
                                                       std::chrono::milliseconds limit) {
  Running& here = running();
  auto wait = [&here, filter = std::move(filter), count, limit] {
    return here.requests.waitFor(filter, count, limit);
  };
  return boost::asio::co_spawn(here.server->executor(), std::move(wait), boost::asio::use_future).get();
}

}  // namespace vorlane::devcloud
