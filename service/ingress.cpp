// ingress.cpp - checks and removes the module's headers.
// In:  packets of any length. Out: Ingress, speed-info reports.
#include "service/ingress.h"

#include <cstring>

#include "dhcp_vex_bytes.h"
#include "dhcp_vex_pkt_deliver.h"
#include "dhcp_vex_pkt_egress.h"

namespace vex::service {
namespace {

// A record at the start of the packet's bytes, or nothing.
template <class Record>
std::optional<Record> ReadAt(std::span<const uint8_t> bytes, size_t at) {
  Record record;
  if (bytes.size() < at || bytes.size() - at < sizeof(record)) return std::nullopt;
  std::memcpy(&record, bytes.data() + at, sizeof(record));
  return record;
}

}  // namespace

std::optional<Ingress> TakeIngress(platform::PacketPtr packet) {
  if (!packet) return std::nullopt;
  const auto header = ReadAt<DhcpIngressHeader>(dhcp_vex::PacketBytes(packet.get()), 0);
  if (!header || header->length != sizeof(*header) || header->zero4 != 0 || header->zero16 != 0)
    return std::nullopt;
  if (!platform::CutHead(*packet, sizeof(*header))) return std::nullopt;
  const platform::PacketAttributes& attr = packet->attr;
  Ingress ingress;
  ingress.sequence = header->sequence;
  ingress.port = attr.ifIndex;
  ingress.vlan = attr.vlanTag & 0x0FFF;
  ingress.packet = std::move(packet);
  return ingress;
}

std::optional<DhcpSpeedInfoMsg> TakeSpeedInfo(platform::PacketPtr packet) {
  if (!packet) return std::nullopt;
  const auto bytes = dhcp_vex::PacketBytes(packet.get());
  const auto head = ReadAt<DhcpInnerHead>(bytes, 0);
  if (!head || head->intfType != DHCP_MSG_USER_BIND || head->intfLen != sizeof(*head)) return std::nullopt;
  const auto message = ReadAt<DhcpSpeedInfoMsg>(bytes, sizeof(*head));
  if (!message || message->msgKind < 1 || message->msgKind > 6 || message->reserved != 0) return std::nullopt;
  return message;
}

}  // namespace vex::service
