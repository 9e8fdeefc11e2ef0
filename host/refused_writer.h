// refused_writer.h - the refused frames as a capture of their own, each with the reason as its comment.
// In:  what ReplayOptions::on_refused hands out. Out: a pcapng file with an interface per port.
#pragma once

#include <string>

#include "host/capture_writer.h"
#include "host/replay.h"

namespace vex::host {

class RefusedWriter {
 public:
  explicit RefusedWriter(const std::string& path) : writer_(path) {}  // throws InputError

  // "snooping: interface 1 v4 (100/s); access.pcapng frame 12": the number leads back to the recording.
  void Add(const Frame& frame, const PortRecord& port, const FrameOutcome& outcome,
           const std::string& reason);
  void Finish() { writer_.Finish(); }

 private:
  CaptureWriter writer_;
};

}  // namespace vex::host
