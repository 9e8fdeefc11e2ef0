// capture_reader.h - frames out of a pcap or pcapng file, one after the other.
// In:  a path, or "-" for standard input. Out: frames that live until the next call, or one error that ends
// the file. The file is read through a window of fixed size: memory does not grow with the file, nor with any
// length in it. Every length is checked against what is there before it is used. Nothing is thrown.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "host/capture_time.h"

namespace vex::host {

inline constexpr uint32_t kLinkTypeEthernet = 1;

struct Frame {
  std::span<const uint8_t>
      bytes;  // valid until the next Next(); a frame longer than the window: its first part
  uint64_t captured_length =
      0;  // bytes the file holds of this frame; more than bytes.size() when only the first part is given
  uint32_t original_length = 0;  // bytes on the wire
  CaptureTime time;
  uint32_t link_type = 0;
  uint32_t interface = 0;  // number within its section, from 0; always 0 in a pcap file
  uint64_t number = 0;     // from 1, within its file
};

struct CaptureError {
  std::string file;
  uint64_t offset = 0;  // of the record or block that cannot be read, from the start of the file
  std::string what;
  std::string Message() const;  // "file: byte offset: what"; at the start of the file without the offset
};

class CaptureReader {
 public:
  static constexpr size_t kFirstPartBytes = 64 * 1024;

  // previous: the time a simple packet block takes when no frame stands before it.
  explicit CaptureReader(std::string path, CaptureTime previous = {});
  ~CaptureReader();
  CaptureReader(CaptureReader&&) noexcept;
  CaptureReader& operator=(CaptureReader&&) noexcept;

  // True: frame holds the next frame. False: the end of the file, or an error that error() names.
  bool Next(Frame& frame);
  const std::optional<CaptureError>& error() const;

  uint64_t bytes_read() const;   // position in the file, for progress
  uint64_t bytes_total() const;  // size of the file, 0 when it is not a regular file
  uint64_t frames() const;       // read so far
  CaptureTime last_time() const;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace vex::host
