// fuzz_capture.cpp - any bytes as a capture file: frames inside the file, or one error.
// In:  the file's bytes; behind a last byte of 7, 15, 23... follow 320 KiB of 0xFF, for records that are
// longer than the reader's window. Out: every byte of every frame read, a position that never leaves the
// file; or an abort.
#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "fuzz/input.h"
#include "host/capture_reader.h"
#include "host/data_plane.h"

namespace {

using vex::fuzz::Require;
using vex::host::CaptureReader;
using vex::host::Frame;

void Write(int fd, const uint8_t* data, size_t size) {
  Require(write(fd, data, size) == static_cast<ssize_t>(size), "a file in memory");
}

// Answers the file's length.
size_t Fill(int fd, const uint8_t* data, size_t size) {
  static const std::vector<uint8_t> kTail(320 * 1024, 0xFF);
  Write(fd, data, size);
  if (size == 0 || data[size - 1] % 8 != 7) return size;
  Write(fd, kTail.data(), kTail.size());
  return size + kTail.size();
}

void CheckFrame(const CaptureReader& reader, const Frame& frame, uint64_t number, size_t length) {
  volatile uint8_t last = 0;  // every byte of a frame is read
  Require(frame.number == number && reader.frames() == number, "frames are numbered from 1");
  Require(frame.captured_length <= length, "a frame lies inside its file");
  Require(frame.bytes.size() == frame.captured_length || frame.bytes.size() == CaptureReader::kFirstPartBytes,
          "a frame is whole or its first part");
  Require(frame.time == reader.last_time(), "the last time is that of the last frame");
  Require(vex::host::ParseFrame(frame.bytes).l2_length <= frame.bytes.size(), "headers lie inside the frame");
  for (const uint8_t byte : frame.bytes) last = byte;
  static_cast<void>(last);
}

void ReadAll(CaptureReader reader, const std::string& path, size_t length) {
  Frame frame;
  uint64_t frames = 0;
  uint64_t used = 0;  // a record or block has 16 bytes or more of its own
  while (reader.Next(frame)) {
    CheckFrame(reader, frame, ++frames, length);
    used += 16 + frame.captured_length;
    Require(used <= length, "all frames lie inside their file, one behind the other");
  }
  Require(!reader.Next(frame), "the end is the end");
  Require(reader.bytes_read() <= reader.bytes_total() && reader.bytes_total() == length,
          "the position lies inside the file");
  if (!reader.error()) return;
  Require(reader.error()->offset <= length, "an error lies inside the file");
  Require(reader.error()->Message().starts_with(path + ": "), "an error names the file");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const int fd = memfd_create("capture", 0);
  const size_t length = Fill(fd, data, size);
  const std::string path = "/proc/self/fd/" + std::to_string(fd);
  ReadAll(CaptureReader(path), path, length);
  close(fd);
  return 0;
}
