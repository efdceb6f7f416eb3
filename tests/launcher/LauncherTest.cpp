#include "LauncherFixture.h"

#include <future>
#include <thread>

namespace vorlane {
namespace {

using namespace testing;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

struct LauncherTest : ::testing::Test {
  TemporaryFolder home;
  std::string container = home.path(".local/share/group.com.vorlane.shared");
  Launcher::Variables variables{{"HOME", home.path()}};
};

TEST_F(LauncherTest, PassesEveryLineUnchangedBothWays) {
  // What the launcher would not understand is still none of its business.
  const std::string odd = "\r\n\n  \n[1]\nnot JSON \xff\r\n{\"id\":\"\\u00e9\xc3\xa9\",\"method\":3 }\n";
  for (const auto streams : {Launcher::Streams::pipes, Launcher::Streams::sockets}) {
    const StandIn agent(container);
    Launcher launcher(variables, {}, streams);
    launcher.input.write(odd);
    auto socket = agent.accept();
    EXPECT_EQ(socket.read(odd.size()), odd);
    socket.write(odd);
    EXPECT_EQ(launcher.output.read(odd.size()), odd);

    const auto text = '"' + std::string(50'000'000, 'y') + '"';
    for (const auto& line : {request("1", text.substr(1, 50'000'000)), answer("1", text)}) {
      auto& from = line.starts_with("{\"id") ? socket : launcher.input;
      auto& to = &from == &socket ? launcher.output : socket;
      const auto writing = std::async(std::launch::async, [&] { from.write(line); });
      EXPECT_TRUE(to.read(line.size()) == line);
    }
    // A last line without its newline goes on too, and is waited for by nobody.
    launcher.input.write("{\"id\":7,\"method\"");
    EXPECT_EQ(socket.read(15), "{\"id\":7,\"method");
    launcher.input.close();
    EXPECT_EQ(socket.read(), "\"");
    EXPECT_EQ(launcher.ended(), 0);
  }
}

TEST_F(LauncherTest, AnswersEachRequestUnderItsOwnIDWhileTheAgentIsAway) {
  const std::string malformed =
      "{\"error\":{\"code\":-32700,\"message\":\"not a JSON object\"},\"id\":null,\"jsonrpc\":\"2.0\"}\n";
  const std::pair<std::string, std::string> cases[] = {
      {request("123456789012345678901234567890"), absent("123456789012345678901234567890")},
      {request(R"("a\"\\\/\u00e9\ud83c\udfac}")"), absent(R"("a\"\\\/\u00e9\ud83c\udfac}")")},
      {"{\"method\":\"x\",\"params\":{\"id\":1,\"a\":[{\"id\":2},\"}\"]}, \"id\" : 3 }\r\n", absent("3")},
      {"{\"id\":1,\"i\\u0064\":5,\"\\u006dethod\":\"x\"}\n", absent("5")},
      {"{\"method\":\"note\",\"params\":{\"id\":1}}\n", ""},
      {request("null") + request(R"({"id":1})"), absent("null") + absent("null")},
      {answer("1") + "{\"error\":{\"method\":1},\"id\":1}\n\n\r\n", ""},
      {"[{\"id\":1,\"method\":\"x\"}]\n", malformed},
      {"{\"id\":1,\"method\":\"x\"} 2\n", malformed},
      {request("01") + request(R"("\x")"), malformed + malformed},
  };
  std::string sent, expected;
  for (const auto& [lines, answers] : cases) sent += lines, expected += answers;
  Launcher launcher(variables);
  for (int turn = 0; turn < 2; ++turn) {
    const auto start = Clock::now();
    launcher.input.write(sent);
    EXPECT_EQ(launcher.output.read(expected.size()), expected);
    // Only the first lines after the start waited for it.
    EXPECT_EQ(Clock::now() - start < 1s, turn == 1);
  }
  // A line that is too long to be held is known by its id all the same.
  launcher.input.write(request("6", std::string(5'000'000, '{')));
  EXPECT_EQ(launcher.output.line(), absent("6"));
  const StandIn agent(container);
  launcher.input.write(request("7"));
  EXPECT_EQ(agent.accept().line(), request("7"));
  EXPECT_EQ(launcher.output.line(), absent("7"));
  launcher.signal(SIGTERM);
  EXPECT_EQ(launcher.said(), "vorlane-mcp-launcher: the Vorlane agent is not running (" + container +
                                 "/mcp.sock: No such file or directory)\n"
                                 "vorlane-mcp-launcher: connected to the Vorlane agent\n"
                                 "vorlane-mcp-launcher: the connection to the Vorlane agent is lost\n");
}

TEST_F(LauncherTest, TellsWhyAnAgentThatRunsDoesNotServe) {
  const StandIn control(container, "/agent.sock");
  Launcher launcher(variables);
  launcher.input.write(request("1"));
  auto asked = control.accept();
  EXPECT_EQ(asked.line(), "{\"command\":\"reason\"}\n");
  asked.write("{\"ok\":true,\"reason\":\"no \\\"disk\\\"\"}\n");
  EXPECT_EQ(launcher.output.line(),
            R"({"error":{"code":-32603,"message":"The Vorlane agent runs, but does not serve assistants: )"
            R"(no \"disk\""},"id":1,"jsonrpc":"2.0"})"
            "\n");
}

TEST_F(LauncherTest, OutlivesTheAgentAndLeavesNoRequestWithoutItsAnswer) {
  std::optional<StandIn> agent(container);
  Launcher launcher(variables);
  const std::string half = R"({"jsonrpc":"2.0","id":"half","params":)";
  for (const auto* id : {"1", "2.0", "1", R"("\u0061")", "4"}) launcher.input.write(request(id));
  launcher.input.write(half);
  auto socket = agent->accept();
  for (int i = 0; i < 5; ++i) socket.line();
  EXPECT_EQ(socket.read(half.size()), half);
  // In another order, and as the agent writes them; of the last only a part.
  socket.write(answer(R"("a")") + answer("2") + answer("1") + answer("4").substr(0, 20));
  agent.reset();
  socket.close();
  for (const auto& line : {answer(R"("a")"), answer("2"), answer("1"), absent("1"), absent("4")}) {
    EXPECT_EQ(launcher.output.line(), line);
  }
  // What comes while it restarts waits for it; the rest of the half line does not go to it.
  launcher.input.write("{}, \"method\":\"x\"}\n" + request("5"));
  EXPECT_EQ(launcher.output.line(), absent(R"("half")"));
  agent.emplace(container);
  socket = agent->accept();
  EXPECT_EQ(socket.line(), request("5"));
  // An agent that ends with lines unread, and one that hangs up on everybody.
  launcher.input.write(request("6"));
  ready(socket.get(), POLLIN, 20'000);
  socket.write(answer("5"));
  socket.close();
  EXPECT_EQ(launcher.output.line(), answer("5"));
  EXPECT_EQ(launcher.output.line(), absent("6"));
  EXPECT_FALSE(agent->asked()) << "nothing is to be sent";
  for (const auto* id : {"7", "8"}) {
    launcher.input.write(request(id));
    // Whether a line went out before the end shows is chance; what did not go out is tried again.
    while (!ready(launcher.output.get(), POLLIN, 10)) {
      if (agent->asked()) agent->accept().close();
    }
    EXPECT_EQ(launcher.output.line(), absent(id));
  }
  launcher.input.write(request("9"));
  socket = agent->accept();
  EXPECT_EQ(socket.line(), request("9"));
  // After the end of input it stays for as long as anything moves.
  launcher.input.write(request("10"));
  EXPECT_EQ(socket.line(), request("10"));
  launcher.input.close();
  for (const auto* id : {"9", "10"}) {
    std::this_thread::sleep_for(700ms);
    socket.write(answer(id));
    EXPECT_EQ(launcher.output.line(), answer(id));
  }
  EXPECT_EQ(launcher.ended(), 0);
}

TEST_F(LauncherTest, ReadsNoFurtherFromOneSideThanTheOtherTakes) {
  for (const auto streams : {Launcher::Streams::pipes, Launcher::Streams::sockets}) {
    const StandIn agent(container);
    Launcher launcher(variables, {}, streams);
    launcher.input.write(request("1"));
    auto socket = agent.accept();
    const auto line = answer("0", '"' + std::string(1000, 'z') + '"');
    ::fcntl(socket.get(), F_SETFL, O_NONBLOCK);
    ::fcntl(launcher.input.get(), F_SETFL, O_NONBLOCK);
    const auto toClient = socket.stuff(line);
    EXPECT_LT(toClient * line.size(), 1'500'000);
    // A full output holds up nobody else.
    EXPECT_EQ(socket.line(), request("1"));
    launcher.input.write(request("2"));
    EXPECT_EQ(socket.line(), request("2"));
    const auto note = "{\"method\":\"" + std::string(1000, 'n') + "\"}\n";
    const auto toAgent = launcher.input.stuff(note);
    EXPECT_LT(toAgent * note.size(), 1'500'000);
    for (std::size_t i = 0; i < toClient; ++i) ASSERT_EQ(launcher.output.line(), line);
    for (std::size_t i = 0; i < toAgent; ++i) ASSERT_EQ(socket.line(), note);
    EXPECT_EQ(::fcntl(launcher.theirOutput.get(), F_GETFL) & O_NONBLOCK, 0);
  }
}

TEST_F(LauncherTest, EndsAtOnceWithZero) {
  const StandIn agent(container);
  using Act = void (*)(Launcher&);
  const Act acts[] = {
      [](Launcher& launcher) { launcher.signal(SIGTERM); },
      [](Launcher& launcher) { launcher.signal(SIGINT); },
      [](Launcher& launcher) { launcher.output.close(), launcher.theirOutput.reset(); },
      // Although the agent never answers.
      [](Launcher& launcher) { launcher.input.close(); },
  };
  for (const auto streams : {Launcher::Streams::pipes, Launcher::Streams::sockets}) {
    for (const auto act : acts) {
      Launcher launcher(variables, {}, streams);
      launcher.input.write(request("1"));
      auto socket = agent.accept();
      socket.line();
      const auto start = Clock::now();
      act(launcher);
      EXPECT_EQ(launcher.ended(), 0);
      EXPECT_LT(Clock::now() - start, 1800ms);
      EXPECT_EQ(socket.read(), "");
    }
    Launcher full(variables, {}, streams);
    full.input.write(request("1"));
    const auto socket = agent.accept();
    // Although the agent takes nothing, and every room between here and there is full.
    while (ready(full.input.get(), POLLOUT, 200)) full.input.write(request("1"));
    full.input.close();
    EXPECT_THAT(full.said(), ::testing::EndsWith("ended before every request was answered, since nothing "
                                                 "moved any more\n"));
    EXPECT_EQ(full.ended(), 0);
  }
  Launcher idle(variables);
  idle.input.close();
  EXPECT_EQ(idle.ended(), 0);
  EXPECT_FALSE(agent.asked());
}

TEST_F(LauncherTest, FindsTheAgentAnewEachTime) {
  const auto deep = home.path(std::string(60, 'd') + "/" + std::string(60, 'e'));
  home.write(".config/vorlane/container", home.path("pointed") + "\n");
  {
    StandIn stale(home.path("stale"));
  }
  // The words, more variables, what the pointer names, and where the agent is found.
  const std::tuple<std::vector<std::string>, Launcher::Variables, std::string, std::string> cases[] = {
      {{"--container", home.path("named")},
       {{"VORLANE_CONTAINER", home.path("variable")}},
       "pointed",
       "named"},
      {{"--container=" + deep}, {}, "pointed", deep.substr(home.path().size() + 1)},
      {{}, {{"VORLANE_CONTAINER", home.path("variable")}}, "pointed", "variable"},
      {{}, {}, "pointed", "pointed"},
      {{}, {}, "stale", ".local/share/group.com.vorlane.shared"},
      {{}, {{"XDG_DATA_HOME", home.path("data")}}, "missing", "data/group.com.vorlane.shared"},
  };
  for (const auto& [words, more, pointer, found] : cases) {
    home.write(".config/vorlane/container", home.path(pointer) + "\n");
    const StandIn agent(home.path(found)), other(home.path("other"));
    std::optional<StandIn> usual;
    if (found == "pointed") usual.emplace(container);
    auto all = variables;
    all.insert(more.begin(), more.end());
    Launcher launcher(all, words);
    launcher.input.write(request("1"));
    EXPECT_EQ(agent.accept().line(), request("1")) << found;
    EXPECT_EQ(launcher.output.line(), absent("1"));
    // Another agent was started meanwhile.
    home.write(".config/vorlane/container", home.path("other"));
    launcher.input.write(request("2"));
    const bool named = !words.empty() || more.contains("VORLANE_CONTAINER");
    EXPECT_EQ((named ? agent : other).accept().line(), request("2")) << found;
  }
}

TEST_F(LauncherTest, SaysOnOneLineWhichWordIsWrong) {
  const std::tuple<std::vector<std::string>, int, std::string> cases[] = {
      {{"--version", "--nope"}, 2, "vorlane-mcp-launcher: unknown option --nope\n"},
      {{"--container="}, 2, "vorlane-mcp-launcher: the option --container needs a value\n"},
      {{"--version"}, 0, ""},
  };
  for (const auto& [words, code, text] : cases) {
    Launcher launcher(variables, words);
    EXPECT_EQ(launcher.said(), text);
    EXPECT_EQ(launcher.ended(), code);
    launcher.theirOutput.reset();
    EXPECT_THAT(launcher.output.read(),
                ::testing::MatchesRegex(code == 0 ? "vorlane-mcp-launcher [0-9.]+\n" : ""));
  }
}

}  // namespace
}  // namespace vorlane
