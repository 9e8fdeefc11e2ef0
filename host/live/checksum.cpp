// checksum.cpp - the Internet checksum (RFC 1071) over the rest of a frame.
#include "host/live/checksum.h"

namespace vex::host::live {

bool CompleteChecksum(std::span<uint8_t> frame, size_t start, size_t offset) {
  if (start > frame.size() || frame.size() - start < 2 || offset > frame.size() - start - 2) return false;
  const std::span<uint8_t> covered = frame.subspan(start);
  uint64_t sum = 0;
  size_t at = 0;
  for (; at + 1 < covered.size(); at += 2) sum += static_cast<uint32_t>(covered[at] << 8 | covered[at + 1]);
  if (at < covered.size()) sum += static_cast<uint32_t>(covered[at] << 8);
  while (sum >> 16 != 0) sum = (sum & 0xFFFF) + (sum >> 16);
  auto check = static_cast<uint16_t>(~sum);
  if (check == 0) check = 0xFFFF;  // 0 would mean "no checksum" in UDP; both stand for the same sum
  covered[offset] = static_cast<uint8_t>(check >> 8);
  covered[offset + 1] = static_cast<uint8_t>(check & 0xFF);
  return true;
}

}  // namespace vex::host::live
