// frame_filter.h - a libpcap filter expression over Ethernet frames.
// In:  the expression; frames. Out: match or not. An expression that libpcap refuses throws InputError.
#pragma once

#include <memory>
#include <string>

#include "host/capture_reader.h"

namespace vex::host {

class FrameFilter {
 public:
  explicit FrameFilter(const std::string& expression);  // "": everything matches
  ~FrameFilter();
  FrameFilter(const FrameFilter&) = delete;
  FrameFilter& operator=(const FrameFilter&) = delete;
  // A frame of another link type matches: the expression cannot speak about it, and it is counted elsewhere.
  bool Matches(const Frame& frame) const {
    return !program_ || frame.link_type != kLinkTypeEthernet || Run(frame);
  }

 private:
  struct Program;
  bool Run(const Frame& frame) const;
  std::unique_ptr<Program> program_;
};

}  // namespace vex::host
