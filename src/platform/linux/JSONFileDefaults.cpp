#include "platform/linux/JSONFileDefaults.h"

#include "base/Encodings.h"
#include "base/Failure.h"
#include "base/Identifiers.h"
#include "base/JSONArguments.h"
#include "base/ShellLog.h"
#include "base/tasks/Moment.h"
#include "platform/linux/FileLock.h"
#include "platform/linux/Files.h"

#include <fcntl.h>
#include <fmt/format.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>

namespace vorlane {
namespace {

constexpr std::size_t fileLimit = std::size_t{16} << 20;
constexpr std::chrono::seconds lockPatience{5};

/// The file may be a link into a person's own collection of settings, so links
/// are followed, here and when it is replaced.
int readFile(const std::string& path, std::string& bytes, std::optional<FileStamp>& stamp) {
  const FileDescriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!fd) return errno;
  // The stamp of what is read, taken first: a change while we read shows later.
  struct stat status{};
  if (::fstat(fd.get(), &status) != 0) return errno;
  stamp.emplace(status);
  return files::readAll(fd.get(), fileLimit, bytes);
}

JSONValue encoded(DefaultsValue value) {
  if (const auto* data = std::get_if<DefaultsData>(&value)) {
    return JSONMap{{"data", base64Encoded(data->bytes)}};
  }
  if (const auto* text = std::get_if<std::string>(&value)) return JSONValue(*text);
  if (const auto* boolean = std::get_if<bool>(&value)) return JSONValue(*boolean);
  return JSONValue(std::get<std::int64_t>(value));
}

std::optional<DefaultsValue> decoded(const JSONValue& value) {
  if (const auto* boolean = value.if_bool()) return *boolean;
  if (const auto* integer = value.if_int64()) return *integer;
  if (const auto* text = value.if_string()) return std::string(*text);
  const auto* map = value.if_object();
  if (map == nullptr || map->size() != 1) return std::nullopt;
  const auto text = json::string(*map, "data");
  auto bytes = text ? base64Decoded(*text) : std::nullopt;
  if (!bytes) return std::nullopt;
  return DefaultsData{std::move(*bytes)};
}

[[noreturn]] void failWriting(const std::string& path, int error) {
  throw Failure(withErrno(fmt::format("The user defaults {} cannot be written", path), error));
}

}  // namespace

JSONFileDefaults::JSONFileDefaults(const std::string& folder, const std::string& domain)
    : folder_(folder), path_(folder + "/" + domain + ".json") {}

/// Under the lock, with what stat(2) has just said.
void JSONFileDefaults::refresh(int statError, const struct stat& status) const {
  if (statError != 0) {
    if (statError != ENOENT && stamp_) shellLog(withErrno(fmt::format("user defaults {}", path_), statError));
    map_.clear();
    stamp_.reset();
    return;
  }
  const FileStamp present(status);
  if (stamp_ == present) return;

  map_.clear();
  std::string bytes;
  // A file that cannot be read keeps its stamp, so it is reported once and not at each read.
  stamp_ = present;
  if (const int error = readFile(path_, bytes, stamp_); error != 0) {
    if (error == ENOENT) return stamp_.reset();
    shellLog(withErrno(fmt::format("user defaults {} cannot be read", path_), error));
    return;
  }
  try {
    map_ = parseJSONMap(bytes);
  } catch (const Failure& failure) {
    shellLog(fmt::format("user defaults {} read as empty: {}", path_, failure.description()));
  }
}

std::optional<DefaultsValue> JSONFileDefaults::value(std::string_view key) const {
  const auto moment = Moment::current();
  std::unique_lock hold(lock_);
  if (moment == 0 || moment != moment_) {
    // Others need not wait for the file system.
    hold.unlock();
    struct stat status{};
    const int error = ::stat(path_.c_str(), &status) == 0 ? 0 : errno;
    hold.lock();
    refresh(error, status);
    moment_ = moment;
  }
  const auto* found = json::find(map_, key);
  return found == nullptr ? std::nullopt : decoded(*found);
}

/// What the file holds now. A file that is no JSON object is moved aside.
JSONMap JSONFileDefaults::mapForWriting() const {
  std::string bytes;
  std::optional<FileStamp> stamp;
  const int error = readFile(path_, bytes, stamp);
  if (error == ENOENT) return {};
  if (error != 0) failWriting(path_, error);
  try {
    return parseJSONMap(bytes);
  } catch (const Failure& failure) {
    const auto aside = fmt::format("{}.unreadable-{}", path_, newLowercaseUUID());
    if (::rename(path_.c_str(), aside.c_str()) != 0) failWriting(path_, errno);
    shellLog(fmt::format("user defaults {} moved to {}: {}", path_, aside, failure.description()));
    return {};
  }
}

void JSONFileDefaults::apply(std::vector<Change> changes) {
  const std::scoped_lock writer(writing_);
  if (const int error = files::makeFolders(folder_); error != 0) failWriting(path_, error);
  const auto name = path_.substr(path_.find_last_of('/') + 1);
  int error = 0;
  const FileDescriptor folder(::open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder) failWriting(path_, errno);
  const auto turn = FileLock::take(folder.get(), name + ".lock", lockPatience, error);
  if (error != 0) failWriting(path_, error);

  auto map = mapForWriting();
  const auto before = map;
  for (auto& [key, value] : changes) {
    if (value) {
      map[key] = encoded(std::move(*value));
    } else {
      map.erase(key);
    }
  }
  if (map == before) return;

  std::error_code noFile;
  const auto real = std::filesystem::canonical(path_, noFile);
  const auto target = noFile ? std::filesystem::path(path_) : real;
  const FileDescriptor home(::open(target.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!home) failWriting(path_, errno);
  FileDescriptor written;
  error = files::replace(home.get(), target.filename(), name + ".new", writeJSON(map), &written);
  if (error != 0) failWriting(path_, error);

  struct stat status{};
  const std::scoped_lock hold(lock_);
  stamp_.reset();
  moment_ = 0;
  if (::fstat(written.get(), &status) != 0) return;
  stamp_.emplace(status);
  map_ = std::move(map);
}

}  // namespace vorlane
