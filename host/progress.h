// progress.h - a progress bar with rate and ETA on a terminal.
// In:  bytes read of all bytes, frames so far. Out: one line on stderr, redrawn at most ten times a second,
// only when
//      stderr is a terminal and the job has run for a second. Costs one subtraction per call until then.
#pragma once

#include <chrono>
#include <cstdint>

namespace vex::host {

class Progress {
 public:
  // total_bytes: size of all input; 0 when unknown. enabled: false turns it off (--quiet).
  Progress(uint64_t total_bytes, bool enabled);
  ~Progress() { Clear(); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Called for every frame; looks at the clock every 4096th time.
  void Update(uint64_t bytes_done, uint64_t frames) {
    if (!enabled_ || (++calls_ & 4095U) != 0) return;
    Draw(bytes_done, frames);
  }
  void Clear();  // wipes the line, before anything else is written

 private:
  using Clock = std::chrono::steady_clock;
  void Draw(uint64_t bytes_done, uint64_t frames);

  uint64_t total_bytes_;
  bool enabled_;
  bool drawn_ = false;
  uint64_t calls_ = 0;
  Clock::time_point start_;
  Clock::time_point last_;
};

}  // namespace vex::host
