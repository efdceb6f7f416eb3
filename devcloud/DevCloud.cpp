#include "devcloud/DevCloud.h"

#include "base/JSONArguments.h"
#include "base/tasks/Timing.h"
#include "devcloud/Accounts.h"
#include "devcloud/Attachments.h"
#include "devcloud/Certificates.h"
#include "devcloud/Control.h"
#include "devcloud/Files.h"
#include "devcloud/Journal.h"
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
/// Changes lie in the journal until there are so many bytes of them; then, and
/// at every start and stop, the whole state is written anew.
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
        key(directory / "signing-key.pem"),
        server(std::make_unique<Server>(loadOrMakeCertificates(directory, now()), options.port)),
        people([this] { changed("people", people.state()); }),
        identity(people, key,
                 {fmt::format("https://127.0.0.1:{}/", server->port()), std::string(audience),
                  options.adminClaimHost},
                 clock, [this] { changed("refreshTokens", identity.state()); }),
        sheets(identity, clock, [this](JSONMap change) { changed("sheets", std::move(change)); }),
        projects(identity, clock, [this](JSONMap change) { changed("projects", std::move(change)); }),
        attachments(identity, sheets, clock,
                    [this](JSONMap change) { changed("attachments", std::move(change)); }),
        lists(identity, clock, [this](JSONMap change) { changed("aiLists", std::move(change)); }) {
    restore();
    identity.addRoutes(router);
    addAccountRoutes(router, identity, clock);
    sheets.addRoutes(router);
    projects.addRoutes(router);
    attachments.addRoutes(router);
    lists.addRoutes(router);
    addControlRoutes(router, controlled);
  }

  ~Running() {
    server->stop();
    if (behind || journal.size() > 0) save();
    // Drops connections and waiting work while the services are still there.
    server.reset();
  }

  void restore() {
    if (const auto text = readFile(stateFile)) {
      reading(stateFile, [&] { apply(parseJSONMap(*text)); });
    }
    if (journal.size() == 0) return;
    reading(journalFile, [&] { journal.replay([this](const JSONMap& change) { apply(change); }); });
    save();
  }

  static void reading(const std::filesystem::path& file, const std::function<void()>& action) {
    try {
      action();
    } catch (const std::exception& error) {
      throw Failure(fmt::format("{} cannot be read: {}", file.string(), describe(error)));
    }
  }

  /// Takes over a whole state, or one of the changes that `changed` has noted.
  void apply(const JSONMap& state) {
    if (const auto* part = json::find(state, "people")) people.restore(part->as_array());
    if (const auto* part = json::find(state, "refreshTokens")) identity.restore(part->as_array());
    if (const auto* part = json::find(state, "sheets")) sheets.restore(part->as_object());
    if (const auto* part = json::find(state, "projects")) projects.restore(part->as_object());
    if (const auto* part = json::find(state, "attachments")) attachments.restore(part->as_object());
    if (const auto* part = json::find(state, "aiLists")) lists.restore(part->as_object());
  }

  JSONMap state() const {
    return {{"people", people.state()},     {"refreshTokens", identity.state()},  {"sheets", sheets.state()},
            {"projects", projects.state()}, {"attachments", attachments.state()}, {"aiLists", lists.state()}};
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
      replaceFile(stateFile, writeJSON(state()), 0600);
      journal.clear();
      behind = false;
    } catch (const std::exception& error) {
      fmt::print(stderr, "vorlane-devcloud: {}\n", describe(error));
    }
  }

  const Person& known(std::string_view sub) const {
    const Person* const person = people.find(sub);
    if (!person) throw Failure(fmt::format("there is no person \"{}\"", sub));
    return *person;
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
  const SigningKey key;
  std::unique_ptr<Server> server;
  People people;
  Identity identity;
  Sheets sheets;
  Projects projects;
  Attachments attachments;
  AILists lists;
  RequestLog requests;
  Faults faults;
  const Controlled controlled{people, identity, sheets, projects, attachments, lists, requests, faults};
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
  onServer([&](Running& to) { devcloud::removePerson(to.controlled, std::string(sub)); });
}

void DevCloud::setCapability(std::string_view sub, bool cloudProjectWrite) {
  onServer([&](Running& to) {
    Person person = to.known(sub);
    person.cloudProjectWrite = cloudProjectWrite;
    to.people.put(std::move(person));
  });
}

void DevCloud::setGone(std::string_view sub, bool gone) {
  onServer([&](Running& to) {
    Person person = to.known(sub);
    person.gone = gone;
    to.people.put(std::move(person));
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

bool DevCloud::removeSheet(std::string_view sub, std::int64_t id) {
  return onServer([&](Running& to) { return to.sheets.remove(sub, id); });
}

std::vector<Project> DevCloud::projects(std::string_view sub) {
  return onServer([&](Running& to) { return to.projects.ownedBy(sub); });
}

std::vector<Commit> DevCloud::commits(std::string_view sub) {
  return onServer([&](Running& to) { return to.projects.commits(sub); });
}

Project DevCloud::putProject(Project project) {
  return onServer([&](Running& to) -> Project { return to.projects.put(std::move(project)); });
}

bool DevCloud::removeProject(std::string_view sub, std::string_view id) {
  return onServer([&](Running& to) { return to.projects.remove(sub, id); });
}

std::vector<Attachment> DevCloud::attachments(std::string_view sub) {
  return onServer([&](Running& to) { return to.attachments.ownedBy(sub); });
}

Attachment DevCloud::putAttachment(Attachment attachment) {
  return onServer([&](Running& to) -> Attachment { return to.attachments.put(std::move(attachment)); });
}

std::vector<AIList> DevCloud::aiLists(std::string_view sub) {
  return onServer([&](Running& to) { return to.lists.ownedBy(sub); });
}

AIList DevCloud::putAIList(AIList list) {
  return onServer([&](Running& to) -> AIList { return to.lists.add(std::move(list)); });
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
