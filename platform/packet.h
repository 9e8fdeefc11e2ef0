// packet.h - the framework's packet buffers: descriptor, attributes, bounded pool.
// In:  frame bytes with the attributes that the data plane derived; the module's copies and new messages.
// Out: Packet, whose first 16 bytes are the OrbMbuf that the module sees; reports of double frees and leaks.
// Ownership: whoever holds a Packet frees it once, hands it to a channel, or publishes it. PacketPtr frees.
// Threads: every function may be called from any thread; one packet belongs to one thread at a time.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "dhcp_vex_platform.h"

namespace vex::platform {

// What the data plane tells about a packet. Kept outside the packet bytes, so it survives copies, channels
// and head operations. The accessors named HostMbufGet... answer from here.
struct PacketAttributes {
  static constexpr int32_t kL3BehindL2 = -1;  // the L3 header starts l2Length bytes into the data
  static constexpr int32_t kNoL3 = -2;        // HostMbufGetL3Hdr answers null

  uint32_t appType = 0;            // low 8 bits: 1 ARP, 10 ICMP, 17 DHCPv4, 28 ICMPv6, 32 DHCPv6, 0 other
  uint32_t appPktType = 0;         // low 8 bits: 1 sends an outgoing packet to the M-LAG library
  uint32_t ifIndex = 0;            // receiving interface (HostMbufGetOectrlIfIndex)
  uint32_t causeAction = 0;        // cause id of the punt
  uint32_t l2Length = 0;           // bytes in front of the L3 header, tags included
  int32_t l3Offset = kL3BehindL2;  // from the first data byte when the packet is made
  uint32_t protoType = 0;          // 0 IPv4, 1 IPv6
  uint32_t management = 0;         // non-zero: came in on the management interface
  uint32_t l4SrcPort = 0;          // UDP ports in host byte order
  uint32_t l4DstPort = 0;
  uint32_t diagSwitch = 0;    // non-zero: the diagnostic trace follows this packet
  uint32_t ndHookIgnore = 0;  // non-zero: the host hook's classification passes it by
  uint16_t vlanTag = 0;       // 802.1Q tag word, host byte order; the VLAN id is its low 12 bits
  std::array<uint8_t, 6> dstMac{};
  uint32_t ingressPort = 0;        // host's own: port index, not seen by the module
  uint64_t cookie = 0;             // host's own: frame number or whatever it needs to recognise the packet
  uint8_t* l3Elsewhere = nullptr;  // tests: what HostMbufGetL3Hdr answers instead of an address in the buffer
};

enum class PacketState : uint8_t { kFree, kOwned, kInChannel };

// The descriptor. The module reads the OrbMbuf part; the rest is the framework's.
struct Packet : OrbMbuf {
  PacketAttributes attr;
  const char* allocPath;  // source path and line of the call that made it, for leak reports
  uint32_t allocLine;
  uint32_t index;         // place in the pool; kHeapPacket for packets with a heap block of their own
  uint16_t l3FromBuffer;  // offset of the L3 header from bufAddr; kNoL3Offset: none
  std::atomic<PacketState> state;  // exchange on free: of two frees exactly one sees kOwned

  static constexpr uint32_t kHeapPacket = UINT32_MAX;
  static constexpr uint16_t kNoL3Offset = UINT16_MAX;

  uint8_t* Data() const { return bufAddr == nullptr ? nullptr : bufAddr + dataOff; }
  // The packet as far as the buffer holds it.
  std::span<uint8_t> Bytes() const {
    if (bufAddr == nullptr || dataOff > bufLen) return {};
    const uint32_t room = static_cast<uint32_t>(bufLen - dataOff);
    return {Data(), dataLen < room ? dataLen : room};
  }
};

// Every OrbMbuf that this framework hands out is a Packet.
inline Packet& PacketOf(OrbMbuf* mbuf) { return *static_cast<Packet*>(mbuf); }
inline const Packet& PacketOf(const OrbMbuf* mbuf) { return *static_cast<const Packet*>(mbuf); }

struct PacketDeleter {
  void operator()(Packet* packet) const;
};
using PacketPtr = std::unique_ptr<Packet, PacketDeleter>;

// Where a packet was allocated or freed. The path must live as long as the packet.
struct Site {
  const char* path = "host";
  uint32_t line = 0;
};

struct PoolConfig {
  uint32_t count = 4096;     // buffers; one more allocation answers null
  uint16_t headroom = 512;   // bytes in front of a new packet, at least 512
  uint16_t dataRoom = 9216;  // largest frame in bytes; headroom + dataRoom is at most 65535
  // Tests: each new packet and each copy gets a heap block of exactly headroom + length bytes, so that the
  // address sanitizer sees a read or write behind the packet.
  bool exactBlocks = false;
};

struct PoolStats {
  uint32_t capacity = 0;
  uint32_t inUse = 0;  // owned or in a channel, heap packets included
  uint32_t inChannel = 0;
  uint64_t exhausted = 0;  // allocations refused because no buffer was left
  uint64_t badFrees = 0;   // double frees, frees of queued or foreign packets; each is also a finding
};

class PacketPool {
 public:
  PacketPool();
  // Only while no packet is in use; false (and a finding) otherwise. The memory is touched on first use.
  bool Configure(const PoolConfig& config);
  const PoolConfig& Config() const;

  // A packet with a copy of the bytes behind the configured headroom; null when the pool is empty or the
  // bytes do not fit.
  PacketPtr New(std::span<const uint8_t> bytes, const PacketAttributes& attr, Site site = {});
  // A packet whose buffer is a heap block of exactly headroom + bytes.size() bytes, the packet at its end.
  PacketPtr NewExact(std::span<const uint8_t> bytes, const PacketAttributes& attr, uint16_t headroom = 0,
                     Site site = {});
  // A packet without a data buffer: bufAddr null, lengths 0.
  PacketPtr NewWithoutBuffer(const PacketAttributes& attr, Site site = {});

  // Independent copy of data and attributes, with full headroom; null when none is left.
  PacketPtr Copy(const Packet& packet, Site site = {});
  bool Fits(size_t length) const;

  // False when it was no owned packet: reported as a finding, nothing freed.
  bool Free(OrbMbuf* mbuf, Site site = {});

  // Bytes from the address to the end of the packet buffer it lies in; SIZE_MAX when it lies in none.
  size_t BytesBehind(const void* address) const;

  PoolStats Stats() const;
  std::vector<std::string> Leaks() const;  // one line per allocation site that still holds packets
  // Copies site paths in [first, last): the texts of a library that is about to be unloaded.
  void KeepSiteTexts(uintptr_t first, uintptr_t last);
  void Reset();  // every packet becomes free, counters 0, default configuration

 private:
  struct Impl;
  Impl& impl_;
};
PacketPool& Packets();

inline void PacketDeleter::operator()(Packet* packet) const { Packets().Free(packet); }

// Head operations, false when there is no room (AddHead) or too little data (CutHead). Cut bytes stay in
// memory.
bool AddHead(Packet& packet, uint32_t length);
bool CutHead(Packet& packet, uint32_t length);

}  // namespace vex::platform
