#include "programs/BakeProgressBar.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace vorlane::bake {
namespace {

constexpr auto redrawAfter = std::chrono::milliseconds(100);

int terminalColumns() {
  winsize size{};
  return ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

/// "0:07", "12:30", "1:02:03".
std::string clockText(double seconds) {
  const auto whole = std::llround(std::min(seconds, 359'999.0));
  const auto hours = whole / 3600, minutes = whole / 60 % 60;
  return hours > 0 ? fmt::format("{}:{:02}:{:02}", hours, minutes, whole % 60)
                   : fmt::format("{}:{:02}", minutes, whole % 60);
}

}  // namespace

ProgressBar::ProgressBar() : terminal_(::isatty(STDERR_FILENO) == 1) {}

void ProgressBar::begin(const std::string& name) {
  name_ = name;
  started_ = Clock::now();
  drawn_ = {};
}

void ProgressBar::show(const renderkit::RenderProgress& progress) {
  const auto now = Clock::now();
  const bool last = progress.frameIndex + 1 == progress.frameCount;
  if (!terminal_ || (now - drawn_ < redrawAfter && !last)) return;
  drawn_ = now;
  shown_ = true;
  const auto seconds = std::chrono::duration<double>(now - started_).count();
  std::fputs(("\r\033[K" + line(name_, progress, seconds, terminalColumns())).c_str(), stderr);
  std::fflush(stderr);
}

void ProgressBar::clear() {
  if (!shown_) return;
  shown_ = false;
  std::fputs("\r\033[K", stderr);
}

std::string ProgressBar::line(const std::string& name, const renderkit::RenderProgress& progress,
                              double seconds, int columns) {
  const auto done = static_cast<double>(progress.frameIndex + 1);
  const auto count = static_cast<double>(progress.frameCount);
  const auto rate = seconds > 0 ? done / seconds : 0;
  const auto left = rate > 0 ? (count - done) / rate : 0;
  const auto numbers = fmt::format(" {}/{} {:.1f} frames/s {} left", progress.frameIndex + 1,
                                   progress.frameCount, rate, clockText(left));
  // The last column stays free, since a terminal may break the line there.
  const auto room = std::max(0, columns - 1 - static_cast<int>(numbers.size()));
  const auto label = name.substr(0, static_cast<std::size_t>(std::min(room, 30)));
  const auto cells = std::min(40, room - static_cast<int>(label.size()) - 3);
  if (cells < 5) return label + numbers;
  const auto full = static_cast<int>(done / count * cells);
  return fmt::format("{} [{}{}]{}", label, std::string(static_cast<std::size_t>(full), '#'),
                     std::string(static_cast<std::size_t>(cells - full), '.'), numbers);
}

}  // namespace vorlane::bake
