// capture_format.h - what the two capture formats share, behind CaptureReader.
// In:  a file window at the start of a file. Out: one frame per call, or the reason why there is none.
// Not here: pcap records (capture_pcap.cpp), pcapng blocks (capture_pcapng.cpp).
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "host/capture_reader.h"
#include "host/file_window.h"

namespace vex::host {

// Integers of a file in the byte order of its writer. The caller has proven that the bytes are there.
class FileOrder {
 public:
  explicit FileOrder(bool swapped = false) : swapped_(swapped) {}
  uint16_t U16(const uint8_t* at) const { return Read<uint16_t>(at); }
  uint32_t U32(const uint8_t* at) const { return Read<uint32_t>(at); }
  uint64_t U64(const uint8_t* at) const { return Read<uint64_t>(at); }

 private:
  static uint16_t Swap(uint16_t value) { return __builtin_bswap16(value); }
  static uint32_t Swap(uint32_t value) { return __builtin_bswap32(value); }
  static uint64_t Swap(uint64_t value) { return __builtin_bswap64(value); }
  template <class T>
  T Read(const uint8_t* at) const {
    T value;
    std::memcpy(&value, at, sizeof value);
    return swapped_ ? Swap(value) : value;
  }
  bool swapped_;
};

// The bytes of one frame: in the window while its record fits, else a copy of the first part.
class FrameBytes {
 public:
  // The record, skip bytes and then the frame, lies whole in the window, which moves behind it at Release().
  void InPlace(std::span<const uint8_t> record, size_t skip, size_t length, Frame& frame) {
    frame.captured_length = length;
    frame.bytes = record.subspan(skip, length);
    pending_ = record.size();
  }
  // False: the file ends inside the first part. The caller moves the window.
  bool FirstPart(FileWindow& window, size_t skip, uint64_t length, Frame& frame);
  void Release(FileWindow& window) {
    window.Pass(pending_);
    pending_ = 0;
  }

 private:
  size_t pending_ = 0;
  std::vector<uint8_t> first_part_;
};

enum class ReadStep : uint8_t { kFrame, kEnd, kFailed };

class CaptureFormat {
 public:
  virtual ~CaptureFormat() = default;
  // kFrame fills frame except its number. kFailed: failure() says what is wrong and where the record starts.
  virtual ReadStep Next(Frame& frame) = 0;
  const std::string& failure() const { return failure_; }
  uint64_t failure_offset() const { return failure_offset_; }

 protected:
  explicit CaptureFormat(FileWindow& window) : window_(window) {}
  ReadStep Fail(uint64_t offset, const std::string& what) {
    failure_offset_ = offset;
    failure_ = window_.failure().empty() ? what : window_.failure();
    return ReadStep::kFailed;
  }
  // The end of the file where a record would start, or a record cut inside its first bytes.
  ReadStep EndOrFail(size_t left, const char* what);

  FileWindow& window_;
  FrameBytes frame_bytes_;

 private:
  std::string failure_;
  uint64_t failure_offset_ = 0;
};

std::unique_ptr<CaptureFormat> MakePcapFormat(FileWindow& window);
std::unique_ptr<CaptureFormat> MakePcapngFormat(FileWindow& window, CaptureTime previous);

inline constexpr uint32_t kPcapMicro = 0xA1B2C3D4;
inline constexpr uint32_t kPcapNano = 0xA1B23C4D;
inline constexpr uint32_t kSectionHeaderBlock = 0x0A0D0D0A;  // the same in both byte orders

}  // namespace vex::host
