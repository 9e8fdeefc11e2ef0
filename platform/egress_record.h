// egress_record.h - what the setters keep inside the 256 opaque bytes of a HostEgressDesc.
// In:  egress_setters.cpp writes it. Out: egress_view.cpp reads it. A descriptor of zeros is an empty record.
#pragma once

#include <cstring>
#include <type_traits>

#include "platform/egress.h"

namespace vex::platform {

struct EgressRecord {
  static constexpr size_t kMostCalls = 44;
  uint8_t calls;      // entries of order
  uint8_t tlvLength;  // bytes of tlv that could be read
  uint8_t unused[2];
  uint8_t order[kMostCalls];             // EgressSetter per call
  uint32_t numbers[kEgressSetterCount];  // last value per setter
  uint32_t uint32InfoType;
  uint32_t tlvType;
  uint8_t vlanBaseInfo[4];
  uint8_t srcMac[6];
  uint8_t dstMac[6];
  uint8_t dstAddr[16];
  uint8_t nextHop[16];
  uint8_t pruneZero[16];
  uint8_t tlv[kTlv250Length];
};
static_assert(sizeof(EgressRecord) <= sizeof(HostEgressDesc) &&
              alignof(EgressRecord) <= alignof(HostEgressDesc));
static_assert(std::is_trivially_copyable_v<EgressRecord>);

inline EgressRecord LoadEgressRecord(const HostEgressDesc& desc) {
  EgressRecord record;
  std::memcpy(&record, desc.opaque, sizeof(record));
  return record;
}

}  // namespace vex::platform
