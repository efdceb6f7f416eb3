// A stream of bytes, whole and in pieces: the same lines come out, each is what
// lies between two newlines, and the buffer of a connection yields them too.
#include "mcp/JSONRPCCodec.h"
#include "net/LineBuffer.h"

#include <cstdlib>
#include <vector>

namespace {

using vorlane::JSONRPCCodec::extractLine;

std::vector<std::string> lines(std::string_view stream, std::size_t piece) {
  std::vector<std::string> found;
  std::string buffer;
  while (!stream.empty()) {
    buffer += stream.substr(0, piece);
    stream.remove_prefix(std::min(piece, stream.size()));
    for (;;) {
      const auto next = extractLine(buffer);
      if (!next.line) {
        if (next.consumed != 0) std::abort();
        break;
      }
      if (next.consumed > buffer.size() || buffer[next.consumed - 1] != '\n') std::abort();
      if (next.line->empty() || next.line->find('\n') != std::string::npos) std::abort();
      buffer.erase(0, next.consumed);
      found.push_back(*next.line);
    }
  }
  return found;
}

std::vector<std::string> bufferedLines(std::string_view stream, std::size_t piece) {
  std::vector<std::string> found;
  vorlane::LineBuffer buffer;
  while (!stream.empty()) {
    buffer.append(stream.substr(0, piece));
    stream.remove_prefix(std::min(piece, stream.size()));
    while (auto line = buffer.next()) found.push_back(*std::move(line));
  }
  return found;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view stream(reinterpret_cast<const char*>(data), size);
  const auto whole = lines(stream, size + 1);
  for (const std::size_t piece : {1, 3}) {
    if (lines(stream, piece) != whole || bufferedLines(stream, piece) != whole) std::abort();
  }
  return 0;
}
