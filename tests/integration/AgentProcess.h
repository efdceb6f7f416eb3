#pragma once

#include "base/JSON.h"

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace vorlane::test {

/// Polls until the condition holds; false when it has not after `limit`.
bool eventually(const std::function<bool()>& condition,
                std::chrono::milliseconds limit = std::chrono::seconds(20));

/// The bytes of a file, empty when it cannot be read.
std::string contents(const std::filesystem::path& path);

/// A folder that goes when the object goes.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

/// A program of ours, run to its end.
struct Finished {
  int exitCode = -1;
  std::string out;
  std::string error;
};
using EnvironmentMap = std::map<std::string, std::string>;
Finished runProgram(const std::string& name, const std::vector<std::string>& arguments,
                    const EnvironmentMap& environment);

/// A program of ours that runs until the object goes.
class BackgroundProgram {
 public:
  BackgroundProgram(const std::string& name, const std::vector<std::string>& arguments,
                    const EnvironmentMap& environment);
  ~BackgroundProgram();
  BackgroundProgram(const BackgroundProgram&) = delete;
  BackgroundProgram& operator=(const BackgroundProgram&) = delete;
  /// What it has printed so far.
  std::string out() const;
  /// Sends the signal and waits for the end; the exit code, or minus the signal.
  int stop(int signal);

 private:
  int out_;
  pid_t pid_;
};

/// The real agent in a world of its own below one folder.
class AgentProcess {
 public:
  /// `deployment`: the file to name, none for the default place.
  explicit AgentProcess(std::filesystem::path folder, std::optional<std::string> deployment = std::nullopt);
  ~AgentProcess();
  AgentProcess(const AgentProcess&) = delete;
  AgentProcess& operator=(const AgentProcess&) = delete;

  /// Starts the agent and waits until it listens. `extra` goes to the command line.
  void start(std::vector<std::string> extra = {});
  /// Starts the agent with these words behind "--headless" and does not wait.
  void launch(std::vector<std::string> words) { launchWith(std::move(words), environment()); }
  void launchWith(std::vector<std::string> words, const EnvironmentMap& environment);
  /// Sends the signal and waits for the end; the exit code, or minus the signal.
  int stop(int signal);
  bool running() const;
  pid_t pid() const { return pid_; }

  std::filesystem::path container() const { return folder_ / "container"; }
  std::string log() const { return contents(folder_ / "shell.log"); }
  /// The environment in which every program finds this agent's paths.
  EnvironmentMap environment() const;
  std::uint16_t port() const { return port_; }
  std::string token() const;

 private:
  std::filesystem::path folder_;
  std::optional<std::string> deployment_;
  pid_t pid_ = -1;
  std::uint16_t port_ = 0;
};

struct Answer {
  int status = 0;
  std::string body;
};
/// POST /rpc with a bearer token.
Answer post(std::uint16_t port, const std::string& token, std::string_view body);
/// A tool call; the JSON-RPC response.
JSONMap call(std::uint16_t port, const std::string& token, const std::string& tool, JSONMap arguments = {});
/// The tool's own result out of such a response. Throws when it is an error.
JSONMap toolResult(const JSONMap& response);

}  // namespace vorlane::test
