// progress.h - a progress bar with rate and ETA on a terminal.
// In:  bytes read of all bytes, frames so far. Out: one line on stderr, redrawn at most ten times a second,
// only when
//      stderr is a terminal and the job has run for a second. Costs one subtraction per call until then.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace vex::host {

class Progress {
 public:
  explicit Progress(bool enabled);  // false: draws nothing, whatever stderr is
  ~Progress() { Clear(); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  bool enabled() const { return enabled_; }
  // Called for every frame; looks at the clock every 4096th time. total_bytes 0: unknown, no bar and no ETA.
  void Update(uint64_t bytes_done, uint64_t total_bytes, uint64_t frames) {
    if (enabled_ && (++calls_ & 4095U) == 0) Draw(bytes_done, total_bytes, frames);
  }
  void Clear();  // wipes the line, before anything else is written

 private:
  using Clock = std::chrono::steady_clock;
  void Draw(uint64_t bytes_done, uint64_t total_bytes, uint64_t frames);

  bool enabled_;
  bool drawn_ = false;
  uint64_t calls_ = 0;
  Clock::time_point start_;
  Clock::time_point last_;
};

// "[=====>    ]  42%  2.1M frames/s  ETA 0:03", at most 78 columns. Separate from the terminal for the tests.
std::string ProgressLine(uint64_t bytes_done, uint64_t total_bytes, uint64_t frames, double seconds);

}  // namespace vex::host
