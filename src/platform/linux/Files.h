#pragma once

#include "base/FileDescriptor.h"

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

/// System calls on files that more than one class here needs. Results are errno
/// values: 0 for success.
namespace vorlane::files {

/// openat(2) with O_CLOEXEC, O_NOFOLLOW and O_NONBLOCK (so that a pipe planted
/// under the name cannot hang the opening), retried when interrupted.
FileDescriptor open(int folder, const std::string& name, int flags, mode_t mode = 0600);

/// Makes `folder` and its missing parents, each with mode 0700. Folders that are
/// there stay as they are. ENOTDIR when something else has the name.
int makeFolders(const std::string& folder);

/// The whole of a plain file; EFBIG when it holds more than `limit` bytes,
/// EINVAL when it is no plain file.
int readAll(int fd, std::size_t limit, std::string& bytes);

int writeAll(int fd, std::string_view bytes);

/// Replaces `name` in `folder` in one step: another file (`temporary`, which only
/// one writer may use at a time) is written, synced and renamed. Returns the
/// descriptor of the new file through `written` when asked. On failure what was
/// there stays and the other file is gone.
int replace(int folder, const std::string& name, const std::string& temporary, std::string_view bytes,
            FileDescriptor* written = nullptr);

}  // namespace vorlane::files
