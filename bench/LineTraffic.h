#pragma once

#include "base/FileDescriptor.h"

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <string_view>

/// What the benches of lines over pipes and sockets share. Whatever goes wrong ends them.
namespace vorlane::bench {

struct Pipe {
  FileDescriptor read, write;
  Pipe() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) std::abort();
    read.reset(ends[0]);
    write.reset(ends[1]);
  }
};

inline void writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const auto count = ::write(fd, bytes.data(), bytes.size());
    if (count <= 0) std::abort();
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
}

/// Passes each whole line that comes next to `line`; false at the end.
template <class Line>
bool readLines(int fd, std::string& buffer, Line line) {
  char piece[65536];
  const auto count = ::read(fd, piece, sizeof piece);
  if (count <= 0) return false;
  buffer.append(piece, static_cast<std::size_t>(count));
  std::size_t start = 0;
  for (auto end = buffer.find('\n'); end != std::string::npos; end = buffer.find('\n', start)) {
    line(std::string_view(buffer).substr(start, end - start));
    start = end + 1;
  }
  buffer.erase(0, start);
  return true;
}

inline double residentMegabytes(pid_t process) {
  std::ifstream in("/proc/" + std::to_string(process) + "/status");
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with("VmRSS:")) return std::stod(line.substr(6)) / 1024;
  }
  return 0;
}

}  // namespace vorlane::bench
