// fuzz_capture.cpp - any bytes as a capture file: frames inside the file, or one error.
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "fuzz/module_fixture.h"
#include "host/capture_reader.h"
#include "host/data_plane.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using vex::fuzz::Require;
  const int fd = memfd_create("capture", 0);
  Require(fd >= 0 && write(fd, data, size) == static_cast<ssize_t>(size), "a file in memory");
  {
    vex::host::CaptureReader reader("/proc/self/fd/" + std::to_string(fd));
    vex::host::Frame frame;
    volatile uint8_t last = 0;  // every byte of a frame is read
    uint64_t frames = 0;
    while (reader.Next(frame)) {
      ++frames;
      Require(frame.number == frames, "frames are numbered from 1");
      Require(frame.bytes.size() <= size, "a frame lies inside its file");
      Require(vex::host::ParseFrame(frame.bytes).l2_length <= frame.bytes.size(),
              "headers lie inside the frame");
      for (const uint8_t byte : frame.bytes) last = byte;
      static_cast<void>(last);
    }
  }
  close(fd);
  return 0;
}
