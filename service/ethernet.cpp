// ethernet.cpp - parses and builds frames.
// In:  untrusted bytes; each step proves a length once and hands on a narrower span. Out: Frame, new frames.
#include "service/ethernet.h"

namespace vex::service {
namespace {

constexpr size_t kMacPair = 12;
constexpr uint8_t kMaxTags = 3;
constexpr size_t kIp4Header = 20;
constexpr size_t kIp6Header = 40;
constexpr size_t kUdpHeader = 8;
constexpr int kMaxExtensions = 8;  // more than any sender puts in front of UDP or ND

constexpr bool IsTag(uint16_t ethertype) {
  return ethertype == 0x8100 || ethertype == 0x88A8 || ethertype == 0x9100;
}

// Parses up to the ethertype and answers what follows it.
std::optional<Bytes> TakeEthernet(Bytes bytes, Frame& frame) {
  const std::optional<Bytes> macs = Part(bytes, 0, kMacPair);
  if (!macs) return std::nullopt;
  frame.dst = MacFrom(*macs);
  frame.src = MacFrom(macs->subspan(6));
  size_t at = kMacPair;
  std::optional<uint16_t> type = U16(bytes, at);
  for (; type && IsTag(*type) && frame.tags < kMaxTags; ++frame.tags) type = U16(bytes, at += 4);
  if (!type) return std::nullopt;
  frame.ethertype = *type;
  return bytes.subspan(at + 2);
}

std::optional<Bytes> TakeIp4(Bytes bytes, Frame& frame) {
  if (bytes.size() < kIp4Header || bytes[0] >> 4 != 4) return std::nullopt;
  const size_t header = (bytes[0] & 0x0Fu) * 4u;
  const size_t total = *U16(bytes, 2);
  const bool fragment = (*U16(bytes, 6) & 0x3FFF) != 0;  // more fragments, or an offset
  if (header < kIp4Header || total < header || total > bytes.size() || fragment) return std::nullopt;
  frame.ip_src = *IpAddress::From4(bytes.subspan(12, 4));
  frame.ip_dst = *IpAddress::From4(bytes.subspan(16, 4));
  frame.protocol = bytes[9];
  return bytes.subspan(header, total - header);
}

// Hop-by-hop options, routing and destination options (RFC 8200 section 4) are stepped over.
constexpr bool IsExtension(uint8_t protocol) { return protocol == 0 || protocol == 43 || protocol == 60; }

std::optional<Bytes> TakeIp6(Bytes bytes, Frame& frame) {
  if (bytes.size() < kIp6Header || bytes[0] >> 4 != 6) return std::nullopt;
  const size_t length = *U16(bytes, 4);
  if (length > bytes.size() - kIp6Header) return std::nullopt;
  frame.ip_src = *IpAddress::From6(bytes.subspan(8, 16));
  frame.ip_dst = *IpAddress::From6(bytes.subspan(24, 16));
  frame.protocol = bytes[6];
  Bytes rest = bytes.subspan(kIp6Header, length);
  for (int i = 0; IsExtension(frame.protocol); ++i) {
    const size_t extension = rest.size() < 2 ? 8 : (rest[1] + 1u) * 8u;
    if (i == kMaxExtensions || extension > rest.size()) return std::nullopt;
    frame.protocol = rest[0];
    rest = rest.subspan(extension);
  }
  return rest;
}

std::optional<Bytes> TakeUdp(Bytes bytes, Frame& frame) {
  if (bytes.size() < kUdpHeader) return std::nullopt;
  const size_t length = *U16(bytes, 4);
  if (length < kUdpHeader || length > bytes.size()) return std::nullopt;
  frame.src_port = *U16(bytes, 0);
  frame.dst_port = *U16(bytes, 2);
  return bytes.subspan(kUdpHeader, length - kUdpHeader);
}

// RFC 1071, over big-endian words; `sum` carries what was summed before.
uint32_t Sum(Bytes bytes, uint32_t sum) {
  for (size_t i = 0; i + 1 < bytes.size(); i += 2) sum += uint32_t{bytes[i]} << 8 | bytes[i + 1];
  if (bytes.size() % 2 != 0) sum += uint32_t{bytes.back()} << 8;
  return sum;
}

uint16_t Checksum(uint32_t sum) {
  while (sum >> 16 != 0) sum = (sum & 0xFFFF) + (sum >> 16);
  return static_cast<uint16_t>(~sum);
}

std::vector<uint8_t> BuildUdp(const Datagram& d) {
  const auto length = static_cast<uint16_t>(kUdpHeader + d.payload.size());
  ByteWriter udp;
  udp.U16(d.src_port).U16(d.dst_port).U16(length).U16(0).Add(d.payload);
  const size_t address = d.ip_src.v6 ? 16 : 4;
  uint32_t sum = Sum(Bytes(d.ip_src.bytes).first(address), kProtocolUdp + length);
  sum = Sum(Bytes(d.ip_dst.bytes).first(address), sum);
  const uint16_t checksum = Checksum(Sum(udp.View(), sum));
  udp.PutU16(6, checksum == 0 ? 0xFFFF : checksum);  // 0 would say that there is none (RFC 768)
  return udp.Take();
}

std::vector<uint8_t> BuildIpHeader(const Datagram& d, size_t payload) {
  ByteWriter ip;
  if (d.ip_src.v6) {
    ip.U32(0x60000000).U16(static_cast<uint16_t>(payload)).U8(kProtocolUdp).U8(64);
    ip.Add(d.ip_src.bytes).Add(d.ip_dst.bytes);
    return ip.Take();
  }
  ip.U16(0x4500).U16(static_cast<uint16_t>(kIp4Header + payload)).U32(0).U8(64).U8(kProtocolUdp).U16(0);
  ip.Add(Bytes(d.ip_src.bytes).first(4)).Add(Bytes(d.ip_dst.bytes).first(4));
  ip.PutU16(10, Checksum(Sum(ip.View(), 0)));
  return ip.Take();
}

}  // namespace

std::optional<Frame> ParseFrame(Bytes bytes) {
  Frame frame;
  std::optional<Bytes> rest = TakeEthernet(bytes, frame);
  if (!rest) return std::nullopt;
  if (frame.ethertype == kEthertypeIp4)
    rest = TakeIp4(*rest, frame);
  else if (frame.ethertype == kEthertypeIp6)
    rest = TakeIp6(*rest, frame);
  else
    return std::nullopt;
  if (rest && frame.protocol == kProtocolUdp) rest = TakeUdp(*rest, frame);
  if (!rest) return std::nullopt;
  frame.payload = *rest;
  return frame;
}

std::vector<uint8_t> BuildFrame(const Datagram& datagram, Bytes like) {
  Frame model;
  const bool tagged = TakeEthernet(like, model) && model.tags > 0;
  const std::vector<uint8_t> udp = BuildUdp(datagram);
  ByteWriter frame;
  frame.Add(datagram.dst).Add(datagram.src);
  if (tagged) frame.Add(like.subspan(kMacPair, 4u * model.tags));
  frame.U16(datagram.ip_src.v6 ? kEthertypeIp6 : kEthertypeIp4);
  frame.Add(BuildIpHeader(datagram, udp.size())).Add(udp);
  return frame.Take();
}

}  // namespace vex::service
