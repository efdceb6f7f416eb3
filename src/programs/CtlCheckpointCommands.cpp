#include "base/FileDescriptor.h"
#include "base/Identifiers.h"
#include "base/JSON.h"
#include "base/Text.h"
#include "base/tasks/Runtime.h"
#include "platform/Platform.h"
#include "programs/CtlCommand.h"
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

/// The words behind the command's name.
struct Arguments {
  std::string owner;
  /// Empty for a command that concerns every project.
  std::string project;
  Options::Words operands;
};

/// The answer is JSON, and must not fail once the work is done.
void requireUTF8(const char* option, const std::string& value) {
  if (!isValidUTF8(value)) throw UsageFailure(fmt::format("the value of {} is not UTF-8", option));
}

Arguments parse(const Context& context, bool takesProject) {
  std::optional<std::string> owner, project;
  Options options;
  options.value("--owner", owner);
  if (takesProject) options.value("--project", project);
  auto operands = context.operands(options);
  if (!owner || project.has_value() != takesProject) {
    throw UsageFailure(fmt::format("{} takes {}", context.command.name, context.command.usage));
  }
  requireUTF8("--owner", *owner);
  if (project) {
    requireUTF8("--project", *project);
    if (!canonicalUUID(*project)) {
      throw QueueError(QueueError::Kind::invalidRequest,
                       fmt::format("the project id \"{}\" is no UUID", *project));
    }
  }
  return {*std::move(owner), std::move(project).value_or(""), std::move(operands)};
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

std::string enqueue(const Context& context) {
  const auto arguments = parse(context, true);
  auto payload = readPayload(arguments.operands[0]);
  OpenQueue queue(context);
  // Made first: where it cannot be, nothing is queued that nobody would be told of.
  const auto signals =
      makeSignalCenter(context.paths.signals(), queue.runtime().io(), queue.runtime().concurrent());
  const auto request = queue.await((*queue).enqueue(arguments.owner, arguments.project, std::move(payload)));
  if (!signals->post(checkpointPendingSignal)) {
    throw Failure(fmt::format("the save {} is queued, but other processes could not be told of it",
                              request.operationID));
  }
  return writeJSON(JSONMap{{"operationId", request.operationID}});
}

std::string cancel(const Context& context) {
  auto arguments = parse(context, true);
  OpenQueue queue(context);
  queue.await((*queue).cancelProject(arguments.owner, arguments.project, std::move(arguments.operands)));
  return writeJSON(JSONMap{{"cancelled", arguments.project}});
}

std::string restore(const Context& context) {
  const auto arguments = parse(context, true);
  OpenQueue queue(context);
  queue.await((*queue).restoreProject(arguments.owner, arguments.project));
  return writeJSON(JSONMap{{"restored", arguments.project}});
}

std::string erase(const Context& context) {
  const auto arguments = parse(context, false);
  OpenQueue queue(context);
  queue.await((*queue).erase(arguments.owner));
  return writeJSON(JSONMap{{"erased", arguments.owner}});
}

std::string list(const Context& context) {
  const auto arguments = parse(context, false);
  const OpenQueue queue(context);
  JSONArray rows;
  for (const auto& entry : (*queue).entries(arguments.owner)) {
    const auto date = dateFromStorage(entry.createdAt);
    rows.push_back({{"operationId", entry.operationID},
                    {"projectId", entry.projectID},
                    {"status", entry.status},
                    {"bytes", entry.bytes},
                    {"createdAt", date ? iso8601Text(*date) : validUTF8(entry.createdAt)}});
  }
  return writeJSON(JSONMap{{"checkpoints", std::move(rows)}});
}

constexpr Command table[] = {
    {"checkpoint enqueue", "--owner O --project P FILE", 1, 1, enqueue},
    {"checkpoint cancel", "--owner O --project P [OPERATION ...]", 0, SIZE_MAX, cancel},
    {"checkpoint restore", "--owner O --project P", 0, 0, restore},
    {"checkpoint erase", "--owner O", 0, 0, erase},
    {"checkpoint list", "--owner O", 0, 0, list},
};

}  // namespace

std::span<const Command> checkpointCommands() {
  return table;
}

}  // namespace vorlane::ctl
