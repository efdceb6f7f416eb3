#include "AgentProcess.h"

#include "base/Failure.h"
#include "base/JSONArguments.h"
#include "support/RawClient.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <thread>

namespace vorlane::test {
namespace {

namespace fs = std::filesystem;

/// Starts a program of the build. `out` and `error` are its standard streams.
pid_t spawnProgram(const std::string& name, const std::vector<std::string>& arguments,
                   const EnvironmentMap& environment, int out, int error) {
  const std::string path = std::string(VORLANE_BIN) + "/" + name;
  std::vector<std::string> words{path};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<std::string> variables;
  for (const auto& [key, value] : environment) variables.push_back(key + "=" + value);
  for (const char* kept : {"PATH", "ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS"}) {
    if (const char* value = std::getenv(kept)) variables.push_back(fmt::format("{}={}", kept, value));
  }
  std::vector<char*> argv, envp;
  for (auto& word : words) argv.push_back(word.data());
  for (auto& variable : variables) envp.push_back(variable.data());
  argv.push_back(nullptr);
  envp.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  if (out >= 0) posix_spawn_file_actions_adddup2(&actions, out, 1);
  if (error >= 0) posix_spawn_file_actions_adddup2(&actions, error, 2);
  pid_t pid = -1;
  const int status = ::posix_spawn(&pid, path.c_str(), &actions, nullptr, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  if (status != 0) throw Failure(withErrno("cannot start " + path, status));
  return pid;
}

int waited(pid_t pid) {
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

int temporaryFile() {
  char name[] = "/tmp/vorlane-test-XXXXXX";
  const int fd = ::mkostemp(name, O_CLOEXEC);
  ::unlink(name);
  return fd;
}

std::string readAll(int fd) {
  // By position: the program that writes shares the file's own.
  std::string bytes;
  char buffer[4096];
  for (ssize_t got = 0; (got = ::pread(fd, buffer, sizeof buffer, static_cast<off_t>(bytes.size()))) > 0;) {
    bytes.append(buffer, static_cast<std::size_t>(got));
  }
  return bytes;
}

}  // namespace

bool eventually(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

std::string contents(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

TemporaryFolder::TemporaryFolder() {
  // A space in it, since people's folders have them.
  std::string name = (fs::temp_directory_path() / "vorlane test XXXXXX").string();
  if (::mkdtemp(name.data()) == nullptr) throw Failure(withErrno("cannot make " + name, errno));
  path_ = name;
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

Finished runProgram(const std::string& name, const std::vector<std::string>& arguments,
                    const EnvironmentMap& environment) {
  const int out = temporaryFile(), error = temporaryFile();
  Finished finished;
  finished.exitCode = waited(spawnProgram(name, arguments, environment, out, error));
  finished.out = readAll(out);
  finished.error = readAll(error);
  ::close(out);
  ::close(error);
  return finished;
}

BackgroundProgram::BackgroundProgram(const std::string& name, const std::vector<std::string>& arguments,
                                     const EnvironmentMap& environment)
    : out_(temporaryFile()), pid_(spawnProgram(name, arguments, environment, out_, -1)) {}

BackgroundProgram::~BackgroundProgram() {
  if (pid_ > 0) stop(SIGKILL);
  ::close(out_);
}

int BackgroundProgram::stop(int signal) {
  ::kill(pid_, signal);
  return waited(std::exchange(pid_, -1));
}

std::string BackgroundProgram::out() const {
  return readAll(out_);
}

AgentProcess::AgentProcess(fs::path folder, std::optional<std::string> deployment)
    : folder_(std::move(folder)), deployment_(std::move(deployment)) {
  fs::create_directories(folder_);
}

AgentProcess::~AgentProcess() {
  if (pid_ > 0) stop(SIGKILL);
}

EnvironmentMap AgentProcess::environment() const {
  EnvironmentMap map{{"HOME", folder_ / "home"},
                     {"VORLANE_CONTAINER", container()},
                     {"VORLANE_SHELL_LOG", folder_ / "shell.log"},
                     {"XDG_CACHE_HOME", folder_ / "cache"}};
  if (deployment_) map["VORLANE_DEPLOYMENT"] = *deployment_;
  return map;
}

void AgentProcess::start(std::vector<std::string> extra) {
  extra.insert(extra.begin(), {"--port", "0"});
  const auto before = log().size();
  launch(std::move(extra));
  static constexpr std::string_view line = "mcp: HTTP listening on 127.0.0.1:";
  const bool listening = eventually([&] {
    const auto text = log();
    const auto at = text.find(line, before);
    if (at == std::string::npos || text.find('\n', at) == std::string::npos) return false;
    port_ = static_cast<std::uint16_t>(std::stoi(text.substr(at + line.size())));
    return true;
  });
  if (!listening) throw Failure("the agent does not listen; its log:\n" + log());
}

void AgentProcess::launchWith(std::vector<std::string> words, const EnvironmentMap& environment) {
  words.insert(words.begin(), "--headless");
  pid_ = spawnProgram("vorlane-agent", words, environment, -1, -1);
}

int AgentProcess::stop(int signal) {
  ::kill(pid_, signal);
  return waited(std::exchange(pid_, -1));
}

bool AgentProcess::running() const {
  return pid_ > 0 && ::kill(pid_, 0) == 0;
}

std::string AgentProcess::token() const {
  const auto finished = runProgram("vorlanectl", {"token"}, environment());
  return json::stringOr(parseJSONMap(finished.out), "token");
}

Answer post(std::uint16_t port, const std::string& token, std::string_view body) {
  RawClient client(port);
  client.send(
      fmt::format("POST /rpc HTTP/1.1\r\nHost: 127.0.0.1\r\nAuthorization: Bearer {}\r\n"
                  "Content-Length: {}\r\n\r\n{}",
                  token, body.size(), body));
  const auto raw = client.receiveAll();
  Answer answer;
  if (raw.starts_with("HTTP/1.1 ")) answer.status = std::stoi(raw.substr(9, 3));
  if (const auto at = raw.find("\r\n\r\n"); at != std::string::npos) answer.body = raw.substr(at + 4);
  return answer;
}

JSONMap call(std::uint16_t port, const std::string& token, const std::string& tool, JSONMap arguments) {
  const JSONMap request{{"jsonrpc", "2.0"},
                        {"id", 1},
                        {"method", "tools/call"},
                        {"params", {{"name", tool}, {"arguments", std::move(arguments)}}}};
  const auto answer = post(port, token, writeJSON(request));
  if (answer.status != 200) throw Failure(fmt::format("HTTP {}: {}", answer.status, answer.body));
  return parseJSONMap(answer.body);
}

JSONMap toolResult(const JSONMap& response) {
  if (const auto* error = json::object(response, "error")) {
    throw Failure(json::stringOr(*error, "message", "no message"));
  }
  const auto& content = response.at("result").at("content").as_array();
  return parseJSONMap(std::string_view(content.at(0).at("text").as_string()));
}

}  // namespace vorlane::test
