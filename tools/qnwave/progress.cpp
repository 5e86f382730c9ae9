#include "tools/qnwave/progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <utility>

#include "tools/qnwave/report.h"

namespace qnwave {
namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kInterval = std::chrono::milliseconds(100);

int TerminalWidth() {
  winsize size{};
  return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

}  // namespace

Progress::Progress(std::string label, uint64_t total, bool quiet)
    : label_(Shown(label)),
      total_(total),
      shown_(!quiet && isatty(STDERR_FILENO)),
      start_(Clock::now()),
      next_(start_) {
  Show(0);
}

Progress::~Progress() {
  // The line is cleared: what the command says next starts at its beginning.
  if (shown_) std::fputs("\r\x1B[K", stderr);
}

void Progress::Show(uint64_t done) {
  if (!shown_) return;
  const Clock::time_point now = Clock::now();
  if (now < next_ && done < total_) return;
  next_ = now + kInterval;
  Draw(std::min(done, total_));
}

void Progress::Draw(uint64_t done) {
  const double part = static_cast<double>(done) / static_cast<double>(total_);
  const double seconds = std::chrono::duration<double>(Clock::now() - start_).count();
  char tail[48];
  if (part > 0 && part < 1 && seconds > 1) {
    std::snprintf(tail, sizeof(tail), " %3d %%, %d s left", static_cast<int>(part * 100),
                  static_cast<int>(seconds / part * (1 - part)) + 1);
  } else {
    std::snprintf(tail, sizeof(tail), " %3d %%", static_cast<int>(part * 100));
  }
  // The line stays below the width, or the terminal would wrap it at every step; a label that leaves no room
  // for the bar is left out.
  const int width = TerminalWidth() - 1;
  const std::string end = tail;
  std::string line = label_ + " ";
  if (static_cast<int>(line.size() + end.size()) > width / 2) line.clear();
  const int bar = std::min(width - static_cast<int>(line.size() + end.size()) - 2, 40);
  if (bar >= 4) {
    const int filled = static_cast<int>(part * bar);
    line += "[" + std::string(static_cast<size_t>(filled), '#') +
            std::string(static_cast<size_t>(bar - filled), '.') + "]";
  }
  line = "\r" + line + end + "\x1B[K";
  std::fwrite(line.data(), 1, line.size(), stderr);
}

}  // namespace qnwave
