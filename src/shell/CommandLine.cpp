#include "shell/CommandLine.h"

#include <fmt/format.h>

#include <charconv>
#include <cstdio>
#include <deque>
#include <optional>

namespace vorlane {
namespace {

/// Walks the words of a command line; an option's value may stand behind "=" or
/// as the next word.
class Words {
 public:
  explicit Words(const std::vector<std::string>& arguments) : rest_(arguments.begin(), arguments.end()) {}

  bool empty() const { return rest_.empty(); }
  bool atOption() const { return !rest_.empty() && rest_.front().size() > 1 && rest_.front().front() == '-'; }

  std::string next() {
    auto word = std::move(rest_.front());
    rest_.pop_front();
    return word;
  }

  /// The value of `option`, when the next word is that option.
  std::optional<std::string> value(std::string_view option) {
    const auto& word = rest_.front();
    if (word == option) {
      rest_.pop_front();
      if (rest_.empty()) throw UsageFailure("the option " + std::string(option) + " needs a value");
      return nonEmpty(option, next());
    }
    if (word.starts_with(option) && word.size() > option.size() && word[option.size()] == '=') {
      return nonEmpty(option, next().substr(option.size() + 1));
    }
    return std::nullopt;
  }

  std::vector<std::string> rest() const { return {rest_.begin(), rest_.end()}; }

 private:
  static std::string nonEmpty(std::string_view option, std::string value) {
    if (value.empty()) throw UsageFailure("the option " + std::string(option) + " needs a value");
    return value;
  }

  std::deque<std::string> rest_;
};

bool takePath(Words& words, PathOptions& paths) {
  if (auto container = words.value("--container")) {
    paths.container = std::move(container);
    return true;
  }
  if (auto deployment = words.value("--deployment")) {
    paths.deployment = std::move(deployment);
    return true;
  }
  return false;
}

std::uint16_t portNumber(const std::string& text) {
  std::uint16_t port = 0;
  const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), port);
  if (status != std::errc() || end != text.data() + text.size()) {
    throw UsageFailure("the option --port takes a number from 0 to 65535, not \"" + text + "\"");
  }
  return port;
}

}  // namespace

AgentCommandLine AgentCommandLine::parse(const std::vector<std::string>& arguments) {
  AgentCommandLine line;
  Words words(arguments);
  bool optionsEnded = false;
  while (!words.empty()) {
    if (optionsEnded || !words.atOption()) {
      line.urls.push_back(words.next());
      continue;
    }
    if (takePath(words, line.paths)) continue;
    if (auto port = words.value("--port")) {
      line.port = portNumber(*port);
      continue;
    }
    const auto option = words.next();
    if (option == "--headless") {
      line.headless = true;
    } else if (option == "--relaunch") {
      line.relaunch = true;
    } else if (option == "--version") {
      line.version = true;
    } else if (option == "--") {
      optionsEnded = true;
    } else {
      throw UsageFailure("unknown option " + option);
    }
  }
  return line;
}

PathOptions takePathOptions(std::vector<std::string>& arguments) {
  PathOptions paths;
  Words words(arguments);
  while (words.atOption()) {
    if (!takePath(words, paths)) throw UsageFailure("unknown option " + words.next());
  }
  arguments = words.rest();
  return paths;
}

int runProgram(const char* name, int count, char** words,
               const std::function<int(std::vector<std::string> arguments, const char* programPath)>& work) {
  // Printing to a stream that is closed or full must not throw: there is still the exit code.
  const auto complain = [name](const std::string& text) {
    std::fputs(fmt::format("{}: {}\n", name, text).c_str(), stderr);
  };
  try {
    return work({words + 1, words + count}, words[0]);
  } catch (const UsageFailure& failure) {
    complain(failure.description());
    return 2;
  } catch (const std::exception& error) {
    complain(describe(error));
    return 1;
  }
}

void requireKnownVault(const Paths& paths) {
  if (!paths.unknownVault.empty()) {
    throw UsageFailure("VORLANE_VAULT is \"file\" or \"secret-service\", not \"" + paths.unknownVault + "\"");
  }
}

}  // namespace vorlane
