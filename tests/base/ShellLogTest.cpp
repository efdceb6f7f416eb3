#include "base/ShellLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>

namespace vorlane {
namespace {

namespace fs = std::filesystem;

struct TheShellLog : ::testing::Test {
  const std::string folder = "/tmp/vorlane-log-" + std::to_string(getpid());

  void SetUp() override { fs::create_directory(folder); }
  void TearDown() override { fs::remove_all(folder); }

  std::string path(const char* name = "shell.log") const { return folder + "/" + name; }
  std::vector<std::string> lines(const char* name = "shell.log") const {
    std::ifstream in(path(name));
    std::vector<std::string> found;
    for (std::string line; std::getline(in, line);) found.push_back(line);
    return found;
  }
};

TEST_F(TheShellLog, WritesOneLineForEachMessageToAPrivateFile) {
  const ShellLog log(path(), "vorlane-agent");
  log.write("mcp: first");
  log.write("two\r\nlines — é");
  const auto found = lines();
  ASSERT_EQ(found.size(), 2U);
  EXPECT_THAT(found[0], ::testing::MatchesRegex(R"([0-9]{10}\.[0-9]+ \[vorlane-agent\] mcp: first)"));
  EXPECT_THAT(found[1], ::testing::EndsWith("] two  lines — é"));
  EXPECT_EQ(fs::status(path()).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(TheShellLog, NeverWritesThroughALinkOrToWhatIsNoFile) {
  std::ofstream(path("precious")) << "kept";
  fs::create_symlink(path("precious"), path());
  fs::create_symlink(path("nowhere"), path("dangling"));
  ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
  fs::create_directory(path("folder"));
  for (const char* name : {"shell.log", "dangling", "pipe", "folder", "missing/deeper.log"}) {
    ShellLog(path(name), "test").write("message");
  }
  EXPECT_THAT(lines("precious"), ::testing::ElementsAre("kept"));
  EXPECT_FALSE(fs::exists(path("nowhere")) || fs::exists(path("missing")));
}

TEST_F(TheShellLog, LinesOfSeveralProcessesNeverInterleave) {
  constexpr int processes = 4;
  constexpr std::size_t count = 250;
  std::vector<pid_t> children;
  for (int process = 0; process < processes; ++process) {
    const pid_t child = fork();
    if (child == 0) {
      const ShellLog log(path(), "p" + std::to_string(process));
      const auto letter = static_cast<char>('a' + process);
      for (std::size_t i = 0; i < count; ++i) log.write(std::string(i * 37 % 5000, letter) + "$");
      _exit(0);
    }
    children.push_back(child);
  }
  for (const pid_t child : children) ASSERT_EQ(waitpid(child, nullptr, 0), child);
  std::map<char, std::size_t> next;
  for (const auto& line : lines()) {
    const auto start = line.find("[p");
    const char process = line.at(start + 2);
    const auto length = next[process]++ * 37 % 5000;
    const auto letter = static_cast<char>('a' + (process - '0'));
    ASSERT_EQ(line.substr(start + 5), std::string(length, letter) + "$");
  }
  for (const auto& [process, lineCount] : next) EXPECT_EQ(lineCount, count) << process;
  EXPECT_EQ(next.size(), std::size_t{processes});
}

}  // namespace
}  // namespace vorlane
