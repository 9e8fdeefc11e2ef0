// checksum_test.cpp - partial checksums as a local sender's kernel leaves them.
#include "host/live/checksum.h"

#include <gtest/gtest.h>

#include <vector>

namespace vex::host::live {
namespace {

// The sum that a receiver forms over the covered bytes and the pseudo header is all ones when the packet is
// intact.
uint16_t Sum(std::span<const uint8_t> bytes, uint32_t sum) {
  for (size_t i = 0; i < bytes.size(); ++i)
    sum += static_cast<uint32_t>(i % 2 == 0 ? bytes[i] << 8 : bytes[i]);
  while (sum >> 16 != 0) sum = (sum & 0xFFFF) + (sum >> 16);
  return static_cast<uint16_t>(sum);
}

// 14 bytes of Ethernet, 20 of IPv4, UDP from there on; the field holds the pseudo header's sum.
std::vector<uint8_t> UdpFrame(size_t payload, uint16_t pseudo) {
  std::vector<uint8_t> frame(14 + 20 + 8 + payload, 0);
  for (size_t i = 0; i < frame.size(); ++i) frame[i] = static_cast<uint8_t>(i * 7);
  frame[40] = static_cast<uint8_t>(pseudo >> 8);
  frame[41] = static_cast<uint8_t>(pseudo);
  return frame;
}

TEST(CompleteChecksumTest, TheReceiversSumComesOutForEvenAndOddLengths) {
  for (const size_t payload : {0, 1, 2, 299, 300, 1471, 1472}) {
    for (const uint16_t pseudo : {uint16_t{0}, uint16_t{0x1234}, uint16_t{0xFFFF}}) {
      std::vector<uint8_t> frame = UdpFrame(payload, pseudo);
      ASSERT_TRUE(CompleteChecksum(frame, 34, 6));
      EXPECT_EQ(Sum(std::span(frame).subspan(34), pseudo), 0xFFFF) << payload << " bytes, pseudo " << pseudo;
    }
  }
}

TEST(CompleteChecksumTest, AResultOfZeroIsSentAsOnes) {
  std::vector<uint8_t> frame(42, 0);
  frame[40] = frame[41] = 0xFF;  // everything sums up to 0xFFFF, whose complement is 0: "no checksum" in UDP
  ASSERT_TRUE(CompleteChecksum(frame, 34, 6));
  EXPECT_EQ(frame[40] << 8 | frame[41], 0xFFFF);
}

TEST(CompleteChecksumTest, AFieldOutsideTheFrameChangesNothing) {
  const std::vector<uint8_t> frame = UdpFrame(0, 0x1234);
  const std::pair<size_t, size_t> places[] = {{34, 7}, {41, 0},       {42, 0},
                                              {43, 6}, {SIZE_MAX, 6}, {34, SIZE_MAX}};
  for (const auto& [start, offset] : places) {
    std::vector<uint8_t> copy = frame;
    EXPECT_FALSE(CompleteChecksum(copy, start, offset)) << start << " + " << offset;
    EXPECT_EQ(copy, frame);
  }
}

}  // namespace
}  // namespace vex::host::live
