// egress_setters.cpp - the 28 setters of the host-packet library.
// In:  a descriptor, and a value or the address of one. Out: the value in the descriptor's record, and its
// turn. An address is read no further than the packet buffer it lies in; what lies in no buffer is read
// whole.
#include <algorithm>
#include <cstddef>

#include "platform/egress_record.h"
#include "platform/faults.h"

namespace vex::platform {
namespace {

// The record is written in place, word by word through memcpy: the opaque bytes never were an EgressRecord.
template <class T>
void Put(HostEgressDesc* desc, size_t offset, const T& value) {
  std::memcpy(desc->opaque + offset, &value, sizeof(value));
}

bool NoteCall(HostEgressDesc* desc, EgressSetter setter) {
  uint8_t& calls = desc->opaque[offsetof(EgressRecord, calls)];
  if (calls >= EgressRecord::kMostCalls) return false;
  desc->opaque[offsetof(EgressRecord, order) + calls++] = static_cast<uint8_t>(setter);
  return true;
}

uint32_t SetNumber(Import import, EgressSetter setter, HostEgressDesc* desc, uint32_t value) {
  if (const Outcome fault = Watch(import, desc, value)) return fault.Code();
  if (desc == nullptr || !NoteCall(desc, setter)) return 1;
  Put(desc, offsetof(EgressRecord, numbers) + static_cast<size_t>(setter) * sizeof(uint32_t), value);
  return 0;
}

// Copies up to length bytes; answers how many could be read.
size_t CopyBounded(HostEgressDesc* desc, size_t offset, const void* value, size_t length) {
  if (value == nullptr) return 0;
  const size_t readable = std::min(length, Packets().BytesBehind(value));
  if (readable > 0) std::memcpy(desc->opaque + offset, value, readable);
  return readable;
}

uint32_t SetBytes(Import import, EgressSetter setter, HostEgressDesc* desc, const void* value, size_t offset,
                  size_t length) {
  if (const Outcome fault = Watch(import, desc, value)) return fault.Code();
  if (desc == nullptr || !NoteCall(desc, setter)) return 1;
  return CopyBounded(desc, offset, value, length) == length ? 0 : 1;
}

}  // namespace
}  // namespace vex::platform

using namespace vex::platform;  // NOLINT: what follows is nothing but the C surface over that namespace

#define VEX_NUMBER_SETTER(name)                                                        \
  uint32_t HostSetEgress##name(HostEgressDesc* desc, uint32_t value) {                 \
    return SetNumber(Import::HostSetEgress##name, EgressSetter::k##name, desc, value); \
  }
#define VEX_BYTES_SETTER(name, field)                                                \
  uint32_t HostSetEgress##name(HostEgressDesc* desc, const void* value) {            \
    return SetBytes(Import::HostSetEgress##name, EgressSetter::k##name, desc, value, \
                    offsetof(EgressRecord, field), sizeof(EgressRecord::field));     \
  }

extern "C" {

VEX_NUMBER_SETTER(OePriority)
VEX_NUMBER_SETTER(IntfType)
VEX_NUMBER_SETTER(SendIfIndex)
VEX_NUMBER_SETTER(ProtoType)
VEX_NUMBER_SETTER(BdId)
VEX_NUMBER_SETTER(BsNoLinkEncap)
VEX_NUMBER_SETTER(BsVlanNum)
VEX_BYTES_SETTER(VlanBaseInfo, vlanBaseInfo)
VEX_NUMBER_SETTER(PruneIf)
VEX_NUMBER_SETTER(BsSpecifyIpat)
VEX_NUMBER_SETTER(VxlanEncodeVlan)
VEX_NUMBER_SETTER(BsOeSMAC)
VEX_NUMBER_SETTER(BsOeDMAC)
VEX_BYTES_SETTER(SrcMac, srcMac)
VEX_BYTES_SETTER(DstMac, dstMac)
VEX_BYTES_SETTER(DstAddr, dstAddr)
VEX_BYTES_SETTER(NextHop, nextHop)
VEX_NUMBER_SETTER(Svp)
VEX_NUMBER_SETTER(TunnelID)
VEX_NUMBER_SETTER(TunnelType)
VEX_NUMBER_SETTER(VrfIndex)
VEX_NUMBER_SETTER(SendPhyIfIndex)
VEX_NUMBER_SETTER(VxlanHubSpkV2)
VEX_NUMBER_SETTER(VxlanVpeerlink)

uint32_t HostSetEgressIntfLen(HostEgressDesc* desc) {
  if (const Outcome fault = Watch(Import::HostSetEgressIntfLen, desc)) return fault.Code();
  return desc != nullptr && NoteCall(desc, EgressSetter::kIntfLen) ? 0 : 1;
}

uint32_t HostSetEgressUint32InfoByType(HostEgressDesc* desc, uint32_t value, uint32_t type) {
  if (const Outcome fault = Watch(Import::HostSetEgressUint32InfoByType, desc, value, type))
    return fault.Code();
  if (desc == nullptr || !NoteCall(desc, EgressSetter::kUint32InfoByType)) return 1;
  constexpr size_t kSlot = static_cast<size_t>(EgressSetter::kUint32InfoByType);
  Put(desc, offsetof(EgressRecord, numbers) + kSlot * sizeof(uint32_t), value);
  Put(desc, offsetof(EgressRecord, uint32InfoType), type);
  return 0;
}

uint32_t HostSetEgressPruneType(HostEgressDesc* desc, const HostEgressPruneType* prune) {
  if (const Outcome fault = Watch(Import::HostSetEgressPruneType, desc, prune)) return fault.Code();
  if (desc == nullptr || prune == nullptr || !NoteCall(desc, EgressSetter::kPruneType)) return 1;
  constexpr size_t kSlot = static_cast<size_t>(EgressSetter::kPruneType);
  Put(desc, offsetof(EgressRecord, numbers) + kSlot * sizeof(uint32_t), prune->type);
  std::memcpy(desc->opaque + offsetof(EgressRecord, pruneZero), prune->zero, sizeof(prune->zero));
  return 0;
}

uint32_t HostSetEgressAppendTlv(HostEgressDesc* desc, uint32_t tlvType, const void* value) {
  if (const Outcome fault = Watch(Import::HostSetEgressAppendTlv, desc, tlvType, value)) return fault.Code();
  constexpr uint32_t kKnownType = 250;
  if (desc == nullptr || tlvType != kKnownType || !NoteCall(desc, EgressSetter::kAppendTlv)) return 1;
  const size_t length = CopyBounded(desc, offsetof(EgressRecord, tlv), value, kTlv250Length);
  Put(desc, offsetof(EgressRecord, tlvType), tlvType);
  Put(desc, offsetof(EgressRecord, tlvLength), static_cast<uint8_t>(length));
  return length == kTlv250Length ? 0 : 1;
}

}  // extern "C"
