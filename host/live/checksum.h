// checksum.h - finishes what a local sender left to its network card.
// In:  a frame, and where its sender's kernel says that the checksum starts and is stored. Out: the same
// frame with the checksum in place. The stored field already holds the sum over the pseudo header (RFC 1071
// sum, not complemented), as checksum offload leaves it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace vex::host::live {

// Sums from `start` to the end of the frame and stores the result `offset` bytes behind `start`. False, and
// the frame untouched, when the field does not lie inside the frame.
bool CompleteChecksum(std::span<uint8_t> frame, size_t start, size_t offset);

}  // namespace vex::host::live
