// packet_imports.cpp - the imports that make, change, free and describe packets.
// In:  calls of the module. Out: the pool's and the attributes' answers; failures that faults.h ordered.
// The accessors have no failure result and are not watched, but for the L3 header.
#include "platform/faults.h"
#include "platform/objects.h"
#include "platform/packet.h"

namespace vex::platform {
namespace {

uint32_t FreeMbuf(OrbMbuf* pkt, const char* sourcePath, uint32_t line) {
  const Outcome fault = Watch(Import::MbufFree, pkt, sourcePath, line);
  const bool freed =
      Packets().Free(pkt, {sourcePath, line});  // also when told to fail: only the answer is wrong
  return fault ? fault.Code() : (freed ? 0 : 1);
}

}  // namespace
}  // namespace vex::platform

using namespace vex::platform;  // NOLINT: this file is nothing but the C surface over that namespace

extern "C" {

uint32_t (*g_mbufFreeCb)(OrbMbuf* pkt, const char* sourcePath, uint32_t line) = FreeMbuf;

OrbMbuf* MbufPktNewFromData(const void* bytes, uint32_t length, const char* sourcePath, uint32_t line) {
  if (Watch(Import::MbufPktNewFromData, bytes, length, sourcePath, line)) return nullptr;
  if (bytes == nullptr || length == 0) return nullptr;
  return Packets().New({static_cast<const uint8_t*>(bytes), length}, {}, {sourcePath, line}).release();
}

OrbMbuf* OrbMbufPktCopyNew(OrbMbuf* pkt, const char* sourcePath, uint32_t line) {
  if (Watch(Import::OrbMbufPktCopyNew, pkt, sourcePath, line) || pkt == nullptr) return nullptr;
  return Packets().Copy(PacketOf(pkt), {sourcePath, line}).release();
}

uint32_t MbufPktAddHead(OrbMbuf* pkt, uint32_t length, const char* sourcePath, uint32_t line) {
  if (const Outcome fault = Watch(Import::MbufPktAddHead, pkt, length, sourcePath, line)) return fault.Code();
  return pkt != nullptr && AddHead(PacketOf(pkt), length) ? 0 : 1;
}

uint32_t MbufPktCutHead(OrbMbuf* pkt, uint32_t length, const char* sourcePath, uint32_t line) {
  if (const Outcome fault = Watch(Import::MbufPktCutHead, pkt, length, sourcePath, line)) return fault.Code();
  return pkt != nullptr && CutHead(PacketOf(pkt), length) ? 0 : 1;
}

uint32_t HostMbufIsNdHookIgnore(OrbMbuf* pkt) { return PacketOf(pkt).attr.ndHookIgnore; }
void HostMbufSetNdHookIgnore(OrbMbuf* pkt) {
  Watch(Import::HostMbufSetNdHookIgnore, pkt);
  PacketOf(pkt).attr.ndHookIgnore = 1;
}
uint32_t HostMbufGetPktAppType(OrbMbuf* pkt) { return PacketOf(pkt).attr.appType; }
uint32_t HostMbufGetAppPktType(OrbMbuf* pkt) { return PacketOf(pkt).attr.appPktType; }
uint8_t* HostMbufGetL3Hdr(OrbMbuf* pkt) {
  if (Watch(Import::HostMbufGetL3Hdr, pkt)) return nullptr;
  const Packet& packet = PacketOf(pkt);
  if (packet.attr.l3Elsewhere != nullptr) [[unlikely]]
    return packet.attr.l3Elsewhere;
  if (packet.bufAddr == nullptr || packet.l3FromBuffer == Packet::kNoL3Offset) return nullptr;
  return packet.bufAddr + packet.l3FromBuffer;
}
uint32_t HostMbufGetL2HeadLength(OrbMbuf* pkt) { return PacketOf(pkt).attr.l2Length; }
uint32_t HostMbufGetProtoType(OrbMbuf* pkt) { return PacketOf(pkt).attr.protoType; }
uint32_t HostMbufGetMngIfFlag(OrbMbuf* pkt) { return PacketOf(pkt).attr.management; }
uint32_t HostMbufGetL4DstPort(OrbMbuf* pkt) { return PacketOf(pkt).attr.l4DstPort; }
uint32_t HostMbufGetL4SrcPort(OrbMbuf* pkt) { return PacketOf(pkt).attr.l4SrcPort; }
uint8_t* HostMbufGetDstMac(OrbMbuf* pkt) {
  return Watch(Import::HostMbufGetDstMac, pkt) ? nullptr : PacketOf(pkt).attr.dstMac.data();
}
uint32_t HostMbufGetCauseAction(OrbMbuf* pkt) { return PacketOf(pkt).attr.causeAction; }
uint32_t HostMbufGetHostDiagSwitch(OrbMbuf* pkt) { return PacketOf(pkt).attr.diagSwitch; }
uint32_t HostMbufGetOectrlIfIndex(OrbMbuf* pkt) { return PacketOf(pkt).attr.ifIndex; }
uint16_t* HostMbufGetVlanTag(OrbMbuf* pkt) {
  return Watch(Import::HostMbufGetVlanTag, pkt) ? nullptr : &PacketOf(pkt).attr.vlanTag;
}

uint32_t HostMbufGetOutIfByL2vpnTnl(OrbMbuf* pkt, uint32_t tunnelId, uint32_t tunnelType,
                                    uint32_t* outIfIndex, uint32_t* nextHop) {
  if (const Outcome fault = Watch(Import::HostMbufGetOutIfByL2vpnTnl, pkt, tunnelId, tunnelType))
    return fault.Code();
  const std::optional<Tunnel> tunnel = Objects().FindTunnel(tunnelId, tunnelType);
  if (!tunnel || outIfIndex == nullptr || nextHop == nullptr) return 1;
  *outIfIndex = tunnel->outIfIndex;
  *nextHop = tunnel->nextHop;
  return 0;
}

}  // extern "C"
