#include "tests/integration/Spine.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

extern char** environ;

namespace vorlane::test {
namespace {

/// The SDK's program, with its standard input and output in our hands.
class Assistant {
 public:
  explicit Assistant(const JSONMap& settings) {
    // It may be gone when we answer it; that is told by the expectations.
    std::signal(SIGPIPE, SIG_IGN);
    int input[2], output[2];
    if (::pipe2(input, O_CLOEXEC) != 0 || ::pipe2(output, O_CLOEXEC) != 0) throw Failure("no pipes");
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    std::string words[] = {"node", CLIENTS_FOLDER "/assistant.mjs", writeJSON(settings)};
    char* arguments[] = {words[0].data(), words[1].data(), words[2].data(), nullptr};
    if (::posix_spawnp(&pid_, "node", &actions, nullptr, arguments, environ) != 0) throw Failure("no node");
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(input[0]);
    ::close(output[1]);
    in_ = ::fdopen(input[1], "w");
    out_ = ::fdopen(output[0], "r");
  }
  ~Assistant() {
    std::fclose(in_);
    std::fclose(out_);
    if (pid_ > 0) ::kill(pid_, SIGKILL), ::waitpid(pid_, nullptr, 0);
  }
  Assistant(const Assistant&) = delete;
  Assistant& operator=(const Assistant&) = delete;

  /// What it asks for next, empty when it has ended.
  std::string asks() {
    char line[256];
    if (std::fgets(line, sizeof line, out_) == nullptr) return {};
    return std::string(line).substr(0, std::string(line).find('\n'));
  }
  void isDone() {
    std::fputs("done\n", in_);
    std::fflush(in_);
  }
  int exitCode() {
    int status = 0;
    ::waitpid(std::exchange(pid_, -1), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }

 private:
  pid_t pid_ = -1;
  std::FILE* in_ = nullptr;
  std::FILE* out_ = nullptr;
};

TEST(Assistants, WorkThroughTheLauncherAndTheAgentsRestart) {
  Spine spine;
  spine.startServing();
  // As clients start it: it finds the container by the pointer that the agent left.
  Assistant assistant(
      {{"launcher", VORLANE_BIN "/vorlane-mcp-launcher"},
       {"environment", {{"HOME", spine.agent.environment().at("HOME")}, {"PATH", "/usr/bin:/bin"}}},
       {"email", "ana@example.com"}});
  ASSERT_EQ(assistant.asks(), "kill");
  EXPECT_EQ(spine.agent.stop(SIGKILL), -SIGKILL);
  assistant.isDone();
  ASSERT_EQ(assistant.asks(), "start");
  spine.agent.start();
  assistant.isDone();
  EXPECT_EQ(assistant.asks(), "ended");
  EXPECT_EQ(assistant.exitCode(), 0);
}

TEST(Assistants, WorkOverHTTPWithTheBearerToken) {
  Spine spine;
  spine.startServing();
  Assistant assistant({{"endpoint", fmt::format("http://127.0.0.1:{}/rpc", spine.agent.port())},
                       {"token", spine.token},
                       {"email", "ana@example.com"}});
  EXPECT_EQ(assistant.asks(), "ended");
  EXPECT_EQ(assistant.exitCode(), 0);
}

}  // namespace
}  // namespace vorlane::test
