// dhcp_vex_bytes.h - bounded views of packet memory.
// In:  a packet buffer, or a span of its bytes. Out: spans that end where the packet or its buffer ends, and
// big-endian reads that answer nothing instead of reading past them. Nothing is copied or owned.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "dhcp_vex_platform.h"

namespace dhcp_vex {

using Bytes = std::span<uint8_t>;

// The rest of a view from `at` on; empty when `at` lies behind its end.
constexpr Bytes From(Bytes bytes, size_t at) { return at < bytes.size() ? bytes.subspan(at) : Bytes(); }

// The `count` bytes at `at`, or nothing when the view does not hold them all.
constexpr std::optional<Bytes> Part(Bytes bytes, size_t at, size_t count) {
  if (at > bytes.size() || bytes.size() - at < count) return std::nullopt;  // subtract: cannot wrap
  return bytes.subspan(at, count);
}

constexpr std::optional<uint8_t> U8(Bytes bytes, size_t at) {
  if (at >= bytes.size()) return std::nullopt;
  return bytes[at];
}

// Network byte order.
constexpr std::optional<uint16_t> U16(Bytes bytes, size_t at) {
  if (at > bytes.size() || bytes.size() - at < 2) return std::nullopt;
  return static_cast<uint16_t>(bytes[at] << 8 | bytes[at + 1]);
}

// The packet's own bytes: from its data offset as far as both its length and its buffer reach. A chained
// packet may be longer than its first buffer; what lies outside that buffer is not seen.
inline Bytes PacketBytes(const OrbMbuf* pkt) {
  if (pkt == nullptr || pkt->bufAddr == nullptr || pkt->dataOff > pkt->bufLen) return {};
  return {pkt->bufAddr + pkt->dataOff, std::min<size_t>(pkt->dataLen, pkt->bufLen - pkt->dataOff)};
}

// The packet's bytes from `start` on, as an accessor of the framework located it; empty when `start` is null
// or points anywhere but into the packet.
inline Bytes PacketBytesFrom(const OrbMbuf* pkt, const uint8_t* start) {
  const Bytes packet = PacketBytes(pkt);
  const auto first = reinterpret_cast<uintptr_t>(packet.data());
  const auto at = reinterpret_cast<uintptr_t>(start);
  if (start == nullptr || at < first || at - first >= packet.size()) return {};
  return packet.subspan(at - first);
}

// The buffer memory from the packet's first byte to the end of the buffer, whatever the packet's length says.
inline Bytes BufferBytes(const OrbMbuf* pkt) {
  if (pkt == nullptr || pkt->bufAddr == nullptr || pkt->dataOff > pkt->bufLen) return {};
  return {pkt->bufAddr + pkt->dataOff, static_cast<size_t>(pkt->bufLen - pkt->dataOff)};
}

}  // namespace dhcp_vex
