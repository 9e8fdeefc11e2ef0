// refused_writer.cpp - comment and port name of each frame.
#include "host/refused_writer.h"

#include <fmt/format.h>

namespace vex::host {

void RefusedWriter::Add(const Frame& frame, const PortRecord& port, const FrameOutcome& outcome,
                        const std::string& reason) {
  const std::string name = port.name.empty() ? fmt::format("port {}", port.index) : port.name;
  writer_.Write(
      frame.bytes, frame.original_length, frame.time, port.index, name,
      fmt::format("{}: {}; {} frame {}", Name(outcome.refused), reason, outcome.file, outcome.frame));
}

}  // namespace vex::host
