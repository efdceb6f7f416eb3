#include "base/ShellLog.h"

#include "base/FileDescriptor.h"
#include "support/TemporaryFolder.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <latch>
#include <map>
#include <thread>

namespace vorlane {
namespace {

namespace fs = std::filesystem;

struct TheShellLog : ::testing::Test {
  const testing::TemporaryFolder folder;

  std::string path(const std::string& name = "shell.log") const { return folder.path(name); }
  std::vector<std::string> lines(const std::string& name = "shell.log") const {
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

TEST_F(TheShellLog, LeavesWhatIsNotThePersonsOwnFileForAnotherAndSaysSoOnce) {
  for (const char* name : {"precious", "twice"}) folder.write(name, "kept");
  folder.link("link", "precious");
  folder.link("dangling", "nowhere");
  ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
  fs::create_directory(path("folder"));
  fs::create_hard_link(path("twice"), path("second name"));
  std::string foreign = "/etc/passwd", owner = "0";
  if (geteuid() == 0) {
    folder.write("foreign", "");
    foreign = path("foreign");
    ASSERT_EQ(chown(foreign.c_str(), 65534, 65534), 0);
    owner = "65534";
  }
  const std::pair<std::string, std::string> cases[] = {
      {path("link"), "it is a symbolic link"},    {path("dangling"), "it is a symbolic link"},
      {path("pipe"), "it is not a regular file"}, {path("folder"), "it is not a regular file"},
      {path("twice"), "it has a second name"},    {foreign, "it belongs to user " + owner}};
  for (const auto& [wrong, reason] : cases) {
    const auto state = path("state/of the person/shell.log");
    fs::remove_all(path("state"));
    const ShellLog log(wrong, "test", state);
    ::testing::internal::CaptureStderr();
    log.write("first");
    log.write("second");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "test: the log " + wrong + " is not used, since " + reason + "; the log is " + state + "\n");
    EXPECT_EQ(lines("state/of the person/shell.log").size(), 2U);
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(ShellLog(wrong, "test", state).path() + ShellLog(wrong, "test").path(), state);
    EXPECT_THAT(::testing::internal::GetCapturedStderr(), ::testing::EndsWith("; there is no log\n"));
  }
  EXPECT_THAT(lines("precious"), ::testing::ElementsAre("kept"));
  EXPECT_THAT(lines("twice"), ::testing::ElementsAre("kept"));
  ShellLog(path("later/shell.log"), "test", path("unused")).write("lost until there is a folder");
  EXPECT_FALSE(fs::exists(path("later")) || fs::exists(path("unused")));
  EXPECT_TRUE(!fs::exists(path("nowhere")) && (geteuid() != 0 || fs::is_empty(foreign)));
}

TEST_F(TheShellLog, GoesToAnotherFileWhenItIsFullAndCannotMove) {
  const std::string large(2'000'000, 'x');
  for (const bool beingMoved : {false, true}) {
    const auto name = std::to_string(beingMoved);
    const ShellLog log(path(name), "test", path("state.log"), 1000);
    log.write("small");
    if (!beingMoved) fs::create_directory(path(name) + ".1");
    const FileDescriptor other(::open(path(name).c_str(), O_RDONLY));
    // Whoever moves it holds this lock, for a moment as a rule.
    if (beingMoved) ASSERT_EQ(flock(other.get(), LOCK_EX), 0);
    ::testing::internal::CaptureStderr();
    log.write(large);
    EXPECT_EQ(log.path(), path(beingMoved ? name : "state.log"));
    log.write("last");
    EXPECT_EQ(log.path(), path("state.log"));
    EXPECT_THAT(::testing::internal::GetCapturedStderr(), ::testing::HasSubstr("full and cannot be moved"));
  }
  EXPECT_EQ(lines("0").size() * 10 + lines("1").size(), 12U);
}

TEST_F(TheShellLog, MovesOnceWhenSeveralFindItFullAtTheSameTime) {
  const std::string full(1000, 'x');
  for (int round = 0; round < 500; ++round) {
    fs::remove(path("shell.log.1"));
    folder.write("shell.log", full);
    std::latch ready(8);
    {
      std::vector<std::jthread> writers;
      for (int i = 0; i < 8; ++i) {
        writers.emplace_back([&] {
          const ShellLog log(path(), "test", std::nullopt, full.size());
          ready.arrive_and_wait();
          log.write("line");
        });
      }
    }
    ASSERT_GE(fs::file_size(path("shell.log.1")), full.size());
    fs::remove(path());
  }
}

TEST_F(TheShellLog, LinesOfSeveralProcessesStayWholeAndAreKeptWhenItMovesAside) {
  // Two and a half megabytes are written, so it moves once.
  constexpr std::uintmax_t limit = 1'500'000;
  constexpr int processes = 4;
  constexpr std::size_t count = 250;
  std::vector<pid_t> children;
  for (int process = 0; process < processes; ++process) {
    const pid_t child = fork();
    if (child == 0) {
      const ShellLog log(path(), "p" + std::to_string(process), std::nullopt, limit);
      const auto letter = static_cast<char>('a' + process);
      for (std::size_t i = 0; i < count; ++i) log.write(std::string(i * 37 % 5000, letter) + "$");
      _exit(0);
    }
    children.push_back(child);
  }
  for (const pid_t child : children) ASSERT_EQ(waitpid(child, nullptr, 0), child);
  std::map<char, std::size_t> next;
  auto all = lines("shell.log.1");
  EXPECT_LE(fs::file_size(path("shell.log.1")), limit + processes * 5000);
  std::ranges::copy(lines(), std::back_inserter(all));
  for (const auto& line : all) {
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
