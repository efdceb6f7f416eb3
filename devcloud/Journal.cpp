#include "devcloud/Journal.h"

#include "base/Failure.h"
#include "devcloud/Files.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace vorlane::devcloud {

Journal::Journal(const std::filesystem::path& file)
    : file_(file), descriptor_(::open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600)) {
  if (descriptor_ < 0) throw Failure(withErrno("cannot open " + file.string(), errno));
  const off_t end = ::lseek(descriptor_, 0, SEEK_END);
  size_ = end > 0 ? static_cast<std::uint64_t>(end) : 0;
}

Journal::~Journal() {
  ::close(descriptor_);
}

void Journal::replay(const std::function<void(const JSONMap& change)>& apply) const {
  const std::string text = readFile(file_).value_or("");
  std::string_view rest = text;
  for (;;) {
    const std::size_t end = rest.find('\n');
    if (end == std::string_view::npos) return;
    apply(parseJSONMap(rest.substr(0, end)));
    rest.remove_prefix(end + 1);
  }
}

void Journal::append(const JSONMap& change) {
  const std::string line = writeJSON(change) + "\n";
  if (!writeAll(descriptor_, line)) {
    const int error = errno;
    // Half a line would spoil the one after it.
    if (::ftruncate(descriptor_, static_cast<off_t>(size_)) != 0) size_ += line.size();
    throw Failure(withErrno("cannot write " + file_.string(), error));
  }
  size_ += line.size();
}

void Journal::clear() {
  if (::ftruncate(descriptor_, 0) != 0) throw Failure(withErrno("cannot empty " + file_.string(), errno));
  size_ = 0;
}

}  // namespace vorlane::devcloud
