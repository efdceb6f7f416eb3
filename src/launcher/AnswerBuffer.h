#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

namespace vorlane {

/// What is on its way to standard output: whole lines, and behind them the
/// beginning of one that is still arriving. That line is held until its end has
/// come, since half of one must not be printed when the agent goes away.
class AnswerBuffer {
 public:
  /// Calls `read(char* room, size)` once, as recv(2) is called, for bytes from
  /// the agent, and returns what it returned. Each whole line that they complete
  /// is passed to `line`, without its newline.
  template <class Read, class Line>
  auto receive(Read read, Line line) {
    constexpr std::size_t most = 65536;
    decltype(read(nullptr, most)) count{};
    const auto before = bytes_.size();
    bytes_.resize_and_overwrite(before + most, [&](char* start, std::size_t) {
      count = read(start + before, most);
      return before + (count > 0 ? static_cast<std::size_t>(count) : 0);
    });
    for (auto at = bytes_.find('\n', before); at != std::string::npos; at = bytes_.find('\n', at + 1)) {
      line(std::string_view(bytes_).substr(whole_, at - whole_));
      whole_ = at + 1;
    }
    return count;
  }

  /// Drops the line that is still arriving.
  void dropUnfinished() { bytes_.resize(whole_); }
  /// Adds a line of our own, with its newline. None may be arriving.
  void add(std::string_view line) {
    bytes_ += line;
    whole_ = bytes_.size();
  }

  /// The bytes that may be printed.
  std::string_view ready() const { return std::string_view(bytes_).substr(written_, whole_ - written_); }
  /// There is as much to print as there should be.
  bool full() const { return ready().size() >= 65536; }
  /// The first `count` bytes of what was ready have been printed.
  void printed(std::size_t count);

 private:
  std::string bytes_;
  /// Up to `written_` printed, up to `whole_` whole lines.
  std::size_t written_ = 0;
  std::size_t whole_ = 0;
};

}  // namespace vorlane
