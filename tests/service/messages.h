// messages.h - DHCP and ND frames as clients, servers and routers send them, byte by byte.
// In:  the few things a test varies. Out: frames; valid unless the test says otherwise.
#pragma once

#include <array>
#include <initializer_list>
#include <vector>

#include "service/dhcp4.h"
#include "service/dhcp6.h"
#include "service/ethernet.h"

namespace vex::service_test {

using service::BuildFrame;
using service::Bytes;
using service::ByteWriter;
using service::Dhcp4Type;
using service::Dhcp6Type;
using service::IpAddress;
using service::MacAddress;
using Buffer = std::vector<uint8_t>;

inline constexpr MacAddress kBroadcastMac = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
inline constexpr MacAddress kServerMac = {2, 0, 0, 0, 0, 0x5E};
inline constexpr MacAddress Mac(uint8_t last) { return {2, 0, 0, 0, 0, last}; }
inline IpAddress Ip(std::string_view text) { return *service::ParseIp(text); }

// Puts a tag behind the MAC addresses; VLAN 0 leaves the frame as it is.
inline Buffer Tagged(Buffer frame, uint16_t vlan) {
  if (vlan == 0) return frame;
  const Buffer tag = ByteWriter().U16(0x8100).U16(vlan).Take();
  frame.insert(frame.begin() + 12, tag.begin(), tag.end());
  return frame;
}

struct Dhcp4Spec {
  Dhcp4Type type = Dhcp4Type::kDiscover;
  uint32_t xid = 0x1234;
  MacAddress client = Mac(0x0B);
  const char* yiaddr = "0.0.0.0";
  const char* ciaddr = "0.0.0.0";
  const char* giaddr = "0.0.0.0";
  const char* requested = nullptr;
  uint32_t lease = 3600;  // replies only
};

inline bool IsReply(Dhcp4Type type) {
  return type == Dhcp4Type::kOffer || type == Dhcp4Type::kAck || type == Dhcp4Type::kNak;
}

inline Buffer Dhcp4Payload(const Dhcp4Spec& spec) {
  ByteWriter out;
  out.U8(IsReply(spec.type) ? 2 : 1).U8(1).U8(6).U8(0).U32(spec.xid).U32(0);
  for (const char* text : {spec.ciaddr, spec.yiaddr, "0.0.0.0", spec.giaddr}) {
    const IpAddress address = Ip(text);
    out.Add(Bytes(address.bytes).first(4));
  }
  out.Add(spec.client).Zeros(10 + 192).U32(0x63825363);
  out.U8(53).U8(1).U8(static_cast<uint8_t>(spec.type));
  if (IsReply(spec.type)) out.U8(54).U8(4).U32(0x0A000001);
  if (IsReply(spec.type) && spec.type != Dhcp4Type::kNak) out.U8(51).U8(4).U32(spec.lease);
  if (spec.requested != nullptr) {
    const IpAddress address = Ip(spec.requested);
    out.U8(50).U8(4).Add(Bytes(address.bytes).first(4));
  }
  return out.U8(255).Take();
}

// A client's broadcast, or a server's answer to the client's MAC; `broadcast_reply` sends that one to
// everybody.
inline Buffer Dhcp4Frame(const Dhcp4Spec& spec, bool broadcast_reply = false) {
  const Buffer payload = Dhcp4Payload(spec);
  if (!IsReply(spec.type))
    return BuildFrame({kBroadcastMac, spec.client, Ip("0.0.0.0"), Ip("255.255.255.255"), 68, 67, payload});
  const MacAddress to = broadcast_reply ? kBroadcastMac : spec.client;
  return BuildFrame({to, kServerMac, Ip("10.0.0.1"), Ip("255.255.255.255"), 67, 68, payload});
}

struct Lease6 {
  const char* address;
  uint32_t valid = 3600;
  uint8_t prefix = 0;   // 0: an address of IA_NA, else a prefix of IA_PD
  uint16_t status = 0;  // of the association; 0: none
};

struct Dhcp6Spec {
  Dhcp6Type type = Dhcp6Type::kSolicit;
  uint32_t xid = 0xABCDE;
  uint8_t client = 0x0B;  // last byte of DUID-LL and MAC
  std::vector<Lease6> leases = {};
  uint16_t status = 0;
};

inline Buffer Duid(uint8_t client) { return {0, 3, 0, 1, 2, 0, 0, 0, 0, client}; }

inline Buffer Dhcp6Payload(const Dhcp6Spec& spec) {
  const Buffer duid = Duid(spec.client);
  ByteWriter out;
  out.U32(uint32_t{static_cast<uint8_t>(spec.type)} << 24 | spec.xid);
  out.U16(1).U16(static_cast<uint16_t>(duid.size())).Add(duid);
  if (spec.status != 0) out.U16(13).U16(2).U16(spec.status);
  for (const Lease6& lease : spec.leases) {
    const IpAddress address = Ip(lease.address);
    ByteWriter options;
    if (lease.prefix == 0) {
      options.U16(5).U16(24).Add(address.bytes).U32(lease.valid).U32(lease.valid);
    } else {
      options.U16(26).U16(25).U32(lease.valid).U32(lease.valid).U8(lease.prefix).Add(address.bytes);
    }
    if (lease.status != 0) options.U16(13).U16(2).U16(lease.status);
    out.U16(lease.prefix == 0 ? 3 : 25).U16(static_cast<uint16_t>(12 + options.size())).U32(7).Zeros(8);
    out.Add(options.View());
  }
  return out.Take();
}

inline Buffer RelayPayload(uint8_t type, Bytes inner) {
  ByteWriter out;
  out.U8(type).U8(0).Zeros(32).U16(18).U16(2).U16(0xBEEF);
  return out.U16(9).U16(static_cast<uint16_t>(inner.size())).Add(inner).Take();
}

inline Buffer Dhcp6Frame(const Dhcp6Spec& spec) {
  const Buffer payload = Dhcp6Payload(spec);
  const IpAddress client = Ip("fe80::b"), server = Ip("fe80::1");
  if (service::IsFromServer(static_cast<uint8_t>(spec.type)))
    return BuildFrame({Mac(spec.client), kServerMac, server, client, 547, 546, payload});
  return BuildFrame({{0x33, 0x33, 0, 1, 0, 2}, Mac(spec.client), client, Ip("ff02::1:2"), 546, 547, payload});
}

// Neighbour discovery: 133 RS, 134 RA, 135 NS, 136 NA, 24 bytes of body and an option.
inline Buffer NdFrame(uint8_t type, const MacAddress& source) {
  ByteWriter out;
  out.Add(MacAddress{0x33, 0x33, 0, 0, 0, 1}).Add(source).U16(0x86DD).U32(0x60000000).U16(32).U8(58).U8(255);
  out.Add(Ip("fe80::b").bytes).Add(Ip("ff02::1").bytes);
  return out.U8(type).U8(0).Zeros(22).U8(1).U8(1).Add(source).Take();
}

}  // namespace vex::service_test
