#include "programs/CtlCheckpoint.h"

#include "base/FileDescriptor.h"
#include "base/Identifiers.h"
#include "base/JSON.h"
#include "base/Text.h"
#include "base/tasks/Runtime.h"
#include "platform/Platform.h"
#include "shell/CommandLine.h"
#include "store/AgentStore.h"
#include "store/ScenewardCheckpointQueue.h"

#include <fmt/format.h>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/use_future.hpp>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>

namespace vorlane::ctl {
namespace {

using QueueError = ScenewardCheckpointRequest::QueueError;

/// The words behind the action.
struct Words {
  std::optional<std::string> owner;
  std::optional<std::string> project;
  std::vector<std::string> operands;
};

/// Takes the option at `arguments[i]` with its value, which stands behind its "=" or is the
/// next word, to which `i` then moves. Only behind "=" may a value begin with "--": elsewhere
/// it is the next option, and the value was forgotten. False when another word stands there.
bool takeOption(const std::vector<std::string>& arguments, std::size_t& i, const std::string& option,
                std::optional<std::string>& taken) {
  std::string value;
  if (arguments[i] == option) {
    if (i + 1 < arguments.size() && !arguments[i + 1].starts_with("--")) value = arguments[++i];
  } else if (arguments[i].starts_with(option + "=")) {
    value = arguments[i].substr(option.size() + 1);
  } else {
    return false;
  }
  if (value.empty()) throw UsageFailure("the option " + option + " needs a value");
  if (taken) throw UsageFailure("the option " + option + " is given twice");
  // The answer is JSON, and must not fail once the work is done.
  if (!isValidUTF8(value)) throw UsageFailure("the value of " + option + " is not UTF-8");
  taken = std::move(value);
  return true;
}

Words parse(const std::vector<std::string>& arguments) {
  Words words;
  bool optionsEnded = false;
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    const auto& word = arguments[i];
    if (optionsEnded || word.size() < 2 || word[0] != '-') {
      words.operands.push_back(word);
    } else if (word == "--") {
      optionsEnded = true;
    } else if (!takeOption(arguments, i, "--owner", words.owner) &&
               !takeOption(arguments, i, "--project", words.project)) {
      throw UsageFailure("unknown option " + word);
    }
  }
  return words;
}

/// The queue of the container, and what its tasks run on.
class OpenQueue {
 public:
  explicit OpenQueue(const Context& context) : queue_(AgentStore::open(context.paths, appGroupIdentifier)) {}

  const ScenewardCheckpointQueue& operator*() const { return queue_; }
  Runtime& runtime() { return runtime_; }
  template <class T>
  T await(Task<T> task) {
    return boost::asio::co_spawn(runtime_.concurrent(), std::move(task), boost::asio::use_future).get();
  }

 private:
  Runtime runtime_;
  ScenewardCheckpointQueue queue_;
};

/// The bytes of a file that may be a payload; a larger one is refused before it is read.
std::string readPayload(const std::string& path) {
  constexpr auto limit = ScenewardCheckpointRequest::maximumPayload;
  const auto tooLarge = [&] {
    return QueueError(QueueError::Kind::invalidRequest,
                      fmt::format("{} is larger than {} bytes", path, limit));
  };
  const auto unreadable = [&] { return Failure(withErrno("cannot read " + path, errno)); };
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat status{};
  if (file.get() < 0 || ::fstat(file.get(), &status) != 0) throw unreadable();
  if (S_ISREG(status.st_mode) && status.st_size > static_cast<off_t>(limit)) throw tooLarge();
  // One byte more than a regular file has shows its end; another kind has no size to go by.
  std::string bytes(S_ISREG(status.st_mode) ? static_cast<std::size_t>(status.st_size) + 1 : 65536, '\0');
  std::size_t used = 0;
  for (;;) {
    const auto count = ::read(file.get(), bytes.data() + used, bytes.size() - used);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw unreadable();
    if (count == 0) break;
    used += static_cast<std::size_t>(count);
    if (used > limit) throw tooLarge();
    if (used == bytes.size()) bytes.resize(std::min(2 * used, limit + 1));
  }
  bytes.resize(used);
  return bytes;
}

std::string enqueue(const Context& context, Words words) {
  auto payload = readPayload(words.operands[0]);
  OpenQueue queue(context);
  // Made first: where it cannot be, nothing is queued that nobody would be told of.
  const auto signals =
      makeSignalCenter(context.paths.signals(), queue.runtime().io(), queue.runtime().concurrent());
  const auto request = queue.await((*queue).enqueue(*words.owner, *words.project, std::move(payload)));
  if (!signals->post(checkpointPendingSignal)) {
    throw Failure(fmt::format("the save {} is queued, but other processes could not be told of it",
                              request.operationID));
  }
  return writeJSON(JSONMap{{"operationId", request.operationID}});
}

std::string cancel(const Context& context, Words words) {
  OpenQueue queue(context);
  queue.await((*queue).cancelProject(*words.owner, *words.project, std::move(words.operands)));
  return writeJSON(JSONMap{{"cancelled", *words.project}});
}

std::string restore(const Context& context, Words words) {
  OpenQueue queue(context);
  queue.await((*queue).restoreProject(*words.owner, *words.project));
  return writeJSON(JSONMap{{"restored", *words.project}});
}

std::string erase(const Context& context, Words words) {
  OpenQueue queue(context);
  queue.await((*queue).erase(*words.owner));
  return writeJSON(JSONMap{{"erased", *words.owner}});
}

std::string list(const Context& context, Words words) {
  const OpenQueue queue(context);
  JSONArray rows;
  for (const auto& entry : (*queue).entries(*words.owner)) {
    const auto date = dateFromStorage(entry.createdAt);
    rows.push_back({{"operationId", entry.operationID},
                    {"projectId", entry.projectID},
                    {"status", entry.status},
                    {"bytes", entry.bytes},
                    {"createdAt", date ? iso8601Text(*date) : validUTF8(entry.createdAt)}});
  }
  return writeJSON(JSONMap{{"checkpoints", std::move(rows)}});
}

struct Action {
  std::string_view name;
  std::string_view usage;
  bool takesProject;
  std::size_t fewest, most;  ///< words that are no options
  std::string (*run)(const Context&, Words);
};

constexpr Action actions[] = {
    {"enqueue", "--owner O --project P FILE", true, 1, 1, enqueue},
    {"cancel", "--owner O --project P [OPERATION ...]", true, 0, SIZE_MAX, cancel},
    {"restore", "--owner O --project P", true, 0, 0, restore},
    {"erase", "--owner O", false, 0, 0, erase},
    {"list", "--owner O", false, 0, 0, list},
};

}  // namespace

std::string checkpoint(const Context& context) {
  const auto& arguments = context.arguments;
  const auto* const action =
      std::ranges::find(actions, arguments.empty() ? "" : std::string_view(arguments[0]), &Action::name);
  if (action == std::end(actions)) {
    throw UsageFailure("checkpoint takes \"enqueue\", \"cancel\", \"restore\", \"erase\" or \"list\"");
  }
  auto words = parse(arguments);
  const bool fits = words.owner && words.project.has_value() == action->takesProject &&
                    words.operands.size() >= action->fewest && words.operands.size() <= action->most;
  if (!fits) throw UsageFailure(fmt::format("checkpoint {} takes {}", action->name, action->usage));
  if (words.project && !canonicalUUID(*words.project)) {
    throw QueueError(QueueError::Kind::invalidRequest,
                     fmt::format("the project id \"{}\" is no UUID", *words.project));
  }
  return action->run(context, std::move(words));
}

}  // namespace vorlane::ctl
