// A progress bar on the error output, if that is a terminal.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace qnwave {

class Progress {
 public:
  // `total` is not 0. Nothing is shown with `quiet` or where no terminal is.
  Progress(std::string label, uint64_t total, bool quiet);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Call it as often as is convenient.
  void Show(uint64_t done);

 private:
  void Draw(uint64_t done);

  std::string label_;
  uint64_t total_;
  bool shown_;
  std::chrono::steady_clock::time_point start_;
  std::chrono::steady_clock::time_point next_;
};

}  // namespace qnwave
