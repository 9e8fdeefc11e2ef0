// progress.cpp - drawing of the progress line.
#include "host/progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace vex::host {
namespace {

constexpr size_t kBar = 30;
constexpr std::chrono::seconds kQuietStart{1};
constexpr std::chrono::milliseconds kRedraw{100};

std::string Rate(double per_second) {
  if (per_second >= 1e6) return fmt::format("{:.1f}M", per_second / 1e6);
  if (per_second >= 1e3) return fmt::format("{:.1f}k", per_second / 1e3);
  return fmt::format("{:.0f}", per_second);
}

}  // namespace

std::string ProgressLine(uint64_t bytes_done, uint64_t total_bytes, uint64_t frames, double seconds) {
  const double rate = seconds > 0 ? static_cast<double>(frames) / seconds : 0;
  if (total_bytes == 0 || bytes_done == 0) return fmt::format("{} frames  {} frames/s", frames, Rate(rate));
  const double part = std::min(1.0, static_cast<double>(bytes_done) / static_cast<double>(total_bytes));
  const auto full = static_cast<size_t>(part * kBar);
  const auto left = static_cast<uint64_t>(std::min(359999.0, seconds * (1 - part) / part + 0.5));
  return fmt::format("[{:=<{}}{: <{}}] {:3.0f}%  {} frames/s  ETA {}:{:02}", "", full, "", kBar - full,
                     100 * part, Rate(rate), left / 60, left % 60);
}

Progress::Progress(bool enabled)
    : enabled_(enabled && isatty(STDERR_FILENO) == 1), start_(Clock::now()), last_(start_) {}

void Progress::Draw(uint64_t bytes_done, uint64_t total_bytes, uint64_t frames) {
  const auto now = Clock::now();
  if (now - start_ < kQuietStart || now - last_ < kRedraw) return;
  last_ = now;
  drawn_ = true;
  const double seconds = std::chrono::duration<double>(now - start_).count();
  std::fputs(fmt::format("\r\x1b[K{}", ProgressLine(bytes_done, total_bytes, frames, seconds)).c_str(),
             stderr);
  std::fflush(stderr);
}

void Progress::Clear() {
  if (!drawn_) return;
  drawn_ = false;
  std::fputs("\r\x1b[K", stderr);
  std::fflush(stderr);
}

}  // namespace vex::host
