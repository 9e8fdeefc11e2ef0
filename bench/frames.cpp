// frames.cpp - see frames.h.
#include "bench/frames.h"

#include <cstddef>
#include <initializer_list>
#include <utility>

namespace vex::bench {
namespace {

class Builder {
 public:
  Builder& U8(uint32_t value) {
    frame_.push_back(static_cast<uint8_t>(value));
    return *this;
  }
  Builder& U16(uint32_t value) { return U8(value >> 8).U8(value); }
  Builder& U32(uint32_t value) { return U16(value >> 16).U16(value); }
  Builder& Zeros(std::size_t count) {
    frame_.insert(frame_.end(), count, 0);
    return *this;
  }
  Builder& Bytes(std::initializer_list<uint8_t> bytes) {
    frame_.insert(frame_.end(), bytes);
    return *this;
  }
  Builder& Mac(uint32_t client) { return U16(0x0200).U32(client); }
  Builder& LinkLocal(uint32_t client) { return U32(0xFE800000).U32(0).U32(0).U32(client + 1); }

  Builder& Ethernet(uint16_t vlan, uint32_t client, uint16_t ethertype) {
    return Bytes({0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}).Mac(client).U16(0x8100).U16(vlan).U16(ethertype);
  }
  Builder& Ipv4(uint8_t protocol, uint32_t payload) {
    U8(0x45).U8(0).U16(20 + payload).U32(0).U8(64).U8(protocol).U16(0);
    return U32(0).U32(0xFFFFFFFF);
  }
  Builder& Ipv6(uint8_t nextHeader, uint32_t payload, uint32_t client) {
    U32(0x60000000).U16(payload).U8(nextHeader).U8(255).LinkLocal(client);
    return Bytes({0xFF, 0x02}).Zeros(11).Bytes({0x01, 0x00, 0x02});
  }
  Builder& Udp(uint16_t source, uint16_t destination, uint32_t payload) {
    return U16(source).U16(destination).U16(8 + payload).U16(0);
  }
  Frame Take() { return std::move(frame_); }

 private:
  Frame frame_;
};

}  // namespace

Frame Dhcp4Frame(uint16_t vlan, uint32_t client) {
  constexpr uint32_t kBootp = 300;
  Builder frame;
  frame.Ethernet(vlan, client, 0x0800).Ipv4(17, 8 + kBootp).Udp(68, 67, kBootp);
  frame.Bytes({1, 1, 6, 0}).U32(client).Zeros(20).Mac(client).Zeros(10 + 64 + 128);
  frame.U32(0x63825363).Bytes({53, 1, 1, 255}).Zeros(kBootp - 244);
  return frame.Take();
}

Frame Dhcp6Frame(uint16_t vlan, uint32_t client) {
  constexpr uint32_t kMessage = 4 + 4 + 14 + 4 + 12;
  Builder frame;
  frame.Ethernet(vlan, client, 0x86DD).Ipv6(17, 8 + kMessage, client).Udp(546, 547, kMessage);
  frame.U8(1).U8(0).U16(client);
  frame.U16(1).U16(14).U16(1).U16(1).U32(0x2A000000).Mac(client);
  frame.U16(3).U16(12).U32(1).U32(0).U32(0);
  return frame.Take();
}

Frame TcpFrame(uint16_t vlan, uint32_t client) {
  Builder frame;
  frame.Ethernet(vlan, client, 0x0800).Ipv4(6, 20 + 100).U16(40000).U16(443).Zeros(16 + 100);
  return frame.Take();
}

Frame SolicitationFrame(uint16_t vlan, uint32_t client) {
  Builder frame;
  frame.Ethernet(vlan, client, 0x86DD).U32(0x60000000).U16(24).U8(58).U8(255).Zeros(16);
  frame.Bytes({0xFF, 0x02}).Zeros(11).U8(0xFF).U16(client).U8(135).Zeros(7).LinkLocal(client);
  return frame.Take();
}

Frame ArpReplyFrame(uint16_t vlan, uint32_t client) {
  Builder frame;
  frame.Ethernet(vlan, client, 0x0806)
      .U16(1)
      .U16(0x0800)
      .U8(6)
      .U8(4)
      .U16(2)
      .Mac(client)
      .U32(client)
      .Mac(0)
      .U32(0);
  return frame.Take();
}

}  // namespace vex::bench
