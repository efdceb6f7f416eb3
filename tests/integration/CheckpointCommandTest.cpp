#include "AgentProcess.h"

#include "base/FileDescriptor.h"
#include "base/SHA256.h"
#include "tests/support/CheckpointPayload.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <csignal>
#include <fstream>

namespace vorlane::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

const std::string operation = "AAAAAAAA-0000-4000-8000-000000000001",
                  kept = "aaaaaaaa-0000-4000-8000-000000000001",
                  project = "bbbbbbbb-0000-4000-8000-000000000002";

std::string payload() {
  static const auto once = checkpointPayload(project, operation, 0);
  return once;
}

class CheckpointCommand : public testing::Test {
 protected:
  std::string file(const std::string& name, std::string_view text) {
    const auto path = folder.path() / name;
    std::ofstream(path, std::ios::binary) << text;
    return path.string();
  }
  Finished run(std::vector<std::string> words) {
    words.insert(words.begin(), "checkpoint");
    return runProgram("vorlanectl", words, agent.environment());
  }
  /// Whether the agent was told of a save since this was last asked.
  bool takeSignal() const {
    return std::filesystem::remove(agent.container() / "signals" /
                                   sha256Hex("com.vorlane.sceneward.checkpoint-pending"));
  }

  TemporaryFolder folder;
  AgentProcess agent{folder.path()};
};

TEST_F(CheckpointCommand, QueuesListsAndTakesBackWithAndWithoutAnAgent) {
  const auto save = file("save.json", payload());
  for (const std::string owner : {"o", "second"}) {
    if (owner == "second") agent.start();
    const std::vector<std::string> enqueue{"enqueue", "--owner", owner, "--project=" + project, save};
    for (int repeat = 0; repeat < 2; ++repeat) {
      const auto queued = run(enqueue);
      EXPECT_EQ(queued.exitCode, 0) << queued.error;
      EXPECT_EQ(queued.out, "{\"operationId\":\"" + kept + "\"}\n");
      EXPECT_TRUE(takeSignal());
    }
    EXPECT_THAT(
        run({"list", "--owner=" + owner}).out,
        AllOf(StartsWith(fmt::format(R"({{"checkpoints":[{{"bytes":{},"createdAt":"20)", payload().size())),
              HasSubstr(fmt::format(R"(Z","operationId":"{}","projectId":"{}","status":"pending"}}]}})", kept,
                                    project))));
    EXPECT_EQ(run({"cancel", "--owner", owner, "--project", project}).exitCode, 0);
    EXPECT_EQ(run({"list", "--owner", owner}).out, "{\"checkpoints\":[]}\n");
    EXPECT_EQ(run({"restore", "--project", project, "--owner", owner}).exitCode, 0);
    EXPECT_THAT(run(enqueue).error, StartsWith("vorlanectl: invalidRequest: the save " + kept));
    EXPECT_EQ(run({"erase", "--owner", owner}).exitCode, 0);
    const auto refused = run({"restore", "--owner", owner, "--project", project});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_EQ(refused.error, "vorlanectl: invalidRequest: the saves of this owner were erased for good\n");
  }
}

TEST_F(CheckpointCommand, IsNoSuccessWhenItIsEndedMidway) {
  const auto pipe = (folder.path() / "pipe").string();
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  BackgroundProgram enqueue("vorlanectl",
                            {"checkpoint", "enqueue", "--owner", "o", "--project", project, pipe},
                            agent.environment());
  const FileDescriptor writing(::open(pipe.c_str(), O_WRONLY | O_CLOEXEC));  // once it reads
  EXPECT_EQ(enqueue.stop(SIGTERM), -SIGTERM);
}

TEST_F(CheckpointCommand, NamesWhatIsWrong) {
  const auto large = file("large.json", "");
  std::filesystem::resize_file(large, (std::uintmax_t{64} << 20) + 1);
  const auto enqueue = [&](const std::string& path) {
    return std::vector<std::string>{"enqueue", "--owner", "o", "--project", project, path};
  };
  struct Case {
    std::vector<std::string> words;
    int exitCode;
    std::string error;
  };
  const Case cases[] = {
      {{}, 2, "unknown command checkpoint; there are checkpoint enqueue, "},
      {{"dance", "--owner", "o"}, 2, "unknown command checkpoint dance; there are "},
      {{"list"}, 2, "checkpoint list takes --owner O"},
      {{"list", "--owner="}, 2, "the option --owner needs a value"},
      {{"erase", "--owner", "--project"}, 2, "the option --owner needs a value"},
      {{"erase", "--owner", "o", "--owner=p"}, 2, "the option --owner is given twice"},
      {{"restore", "--owner", "o", "--project=p", "--project", "p"},
       2,
       "the option --project is given twice"},
      {{"erase", "--owner", "\xff"}, 2, "the value of --owner is not UTF-8"},
      {{"cancel", "--owner", "o", "--project", "p"}, 1, "invalidRequest: the project id \"p\" is no UUID"},
      {{"erase", "--owner", "o", "--project", project}, 2, "unknown option --project"},
      {{"restore", "--owner", "o", "--project", project, "x"}, 2, "unexpected word x"},
      {{"enqueue", "--owner", "o", "--project", project}, 2, "checkpoint enqueue takes"},
      {{"enqueue", "--owner", "o", "--force", "f"}, 2, "unknown option --force"},
      {enqueue("/nowhere/save.json"), 1, "cannot read /nowhere/save.json: "},
      {enqueue(folder.path().string()), 1, "cannot read " + folder.path().string() + ": "},
      {enqueue(large), 1, "invalidRequest: " + large + " is larger than 67108864 bytes"},
      {enqueue("/dev/zero"), 1, "invalidRequest: /dev/zero is larger than 67108864 bytes"},
      {enqueue(file("cut.json", "{")), 1, "invalid JSON at byte 1"},
      {{"cancel", "--owner", "o", "--project", project, operation, "x"},
       1,
       "invalidRequest: the operation id \"x\" is no UUID"},
  };
  for (const auto& [words, exitCode, error] : cases) {
    const auto finished = run(words);
    EXPECT_EQ(finished.exitCode, exitCode) << error;
    EXPECT_THAT(finished.error, StartsWith("vorlanectl: " + error));
    EXPECT_EQ(std::ranges::count(finished.error, '\n'), 1) << finished.error;
    EXPECT_EQ(finished.out, "");
  }
  EXPECT_FALSE(takeSignal());
  // That nobody can be told of a save is found out before it is queued.
  const auto save = file("save.json", payload());
  const auto signals = agent.container() / "signals";
  std::filesystem::remove_all(signals);
  std::ofstream{signals};
  EXPECT_THAT(run(enqueue(save)).error, StartsWith("vorlanectl: The signals folder"));
  std::filesystem::remove(signals);
  EXPECT_EQ(run({"list", "--owner", "o"}).out, "{\"checkpoints\":[]}\n");
  EXPECT_EQ(run({"list", "--owner=--project"}).exitCode, 0);

  EXPECT_EQ(run(enqueue(save)).exitCode, 0);
  EXPECT_THAT(run(enqueue(file("other.json", payload() + " "))).error,
              StartsWith("vorlanectl: conflictingOperation: "));
  sqlite3* database = nullptr;
  sqlite3_open((agent.container() / "Vorlane.sqlite").c_str(), &database);
  sqlite3_exec(database, "UPDATE sceneward_checkpoint_queue SET created_at = CAST(x'61ff' AS TEXT)", nullptr,
               nullptr, nullptr);
  sqlite3_close(database);
  EXPECT_THAT(run({"list", "--owner", "o"}).out, HasSubstr("\"createdAt\":\"a\xEF\xBF\xBD\""));
}

}  // namespace
}  // namespace vorlane::test
