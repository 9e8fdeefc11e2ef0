// return_channel.cpp - writes egress headers.
// In:  packets and records. Out: messages as the module's drain expects them.
#include "service/return_channel.h"

#include <cstring>

#include "dhcp_vex_pkt_egress.h"
#include "dhcp_vex_pkt_return.h"
#include "platform/channel_events.h"
#include "platform/egress.h"

namespace vex::service {
namespace {

using platform::Packet;
using platform::PacketPtr;

constexpr size_t kHeaderLength = sizeof(DhcpHostEgressIntfInfo) + platform::kTlv250Length;
constexpr platform::Site kSite{"service/return_channel", 0};

struct Header {
  DhcpHostEgressIntfInfo info{};
  uint32_t tlv = 0;
};
static_assert(sizeof(Header) == kHeaderLength && sizeof(Header::tlv) == platform::kTlv250Length);

Header HeaderOf(uint16_t kind) {
  Header header;
  header.info.intfType = kind;
  header.info.intfLen = kHeaderLength;
  return header;
}

bool Prepend(Packet& packet, const Header& header) {
  if (!platform::AddHead(packet, sizeof(header))) return false;
  std::memcpy(packet.Data(), &header, sizeof(header));
  return true;
}

Header PacketHeader(const Packet& packet, const ReturnChannel::Destination& to) {
  Header header = HeaderOf(kEthernetPort);
  DhcpHostEgressIntfInfo& info = header.info;
  info.sendIfIndex = info.sendPhyIfIndex = to.port;
  info.protoType = static_cast<uint8_t>(packet.attr.protoType);
  info.bsFlags =
      static_cast<uint16_t>(DHCP_BS_NO_LINK_ENCAP | (to.tags & DHCP_BS_VLAN_NUM));  // a whole frame
  std::memcpy(info.vlanBaseInfo, &to.vlan, sizeof(to.vlan));
  if (packet.dataLen >= sizeof(info.dstMac) + sizeof(info.srcMac)) {
    std::memcpy(info.dstMac, packet.Data(), sizeof(info.dstMac));
    std::memcpy(info.srcMac, packet.Data() + sizeof(info.dstMac), sizeof(info.srcMac));
  }
  header.tlv = to.from_port;
  return header;
}

}  // namespace

bool ReturnChannel::SendPacket(PacketPtr packet, const Destination& to) {
  return packet && Prepend(*packet, PacketHeader(*packet, to)) && Send(std::move(packet));
}

bool ReturnChannel::SendNdUpload(PacketPtr packet) {
  return packet && Prepend(*packet, HeaderOf(DHCP_MSG_ND_UPLOAD)) && Send(std::move(packet));
}

bool ReturnChannel::SendBinding(const BindingMessage& message) {
  uint8_t body[sizeof(message)];
  std::memcpy(body, &message, sizeof(message));
  PacketPtr packet = platform::Packets().New(body, {}, kSite);
  return packet && Prepend(*packet, HeaderOf(DHCP_MSG_USER_BIND)) && Send(std::move(packet));
}

bool ReturnChannel::Send(PacketPtr packet) {
  if (!channel_.Send(packet)) return false;
  unsignalled_ = true;
  return true;
}

void ReturnChannel::Flush() {
  if (!unsignalled_) return;
  unsignalled_ = false;
  platform::Events().Write(DHCP_RETURN_CHANNEL_EVENT);
}

}  // namespace vex::service
