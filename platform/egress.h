// egress.h - outgoing packets: what the setters stored in a descriptor, and where published packets go.
// In:  the HostSetEgress... setters, HostEgressPktPubWithSource, HostUploadLdmByHook.
// Out: EgressView, a descriptor that can be read, compared and shown; packets to a sink or into a queue.
// A descriptor of zeros is an empty one; each setter stores its value and notes its turn.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/packet.h"

namespace vex::platform {

// The setters by the last part of their names, in the order in which the module calls them.
// clang-format off
#define VEX_EGRESS_SETTERS(X) \
  X(OePriority) X(IntfType) X(SendIfIndex) X(ProtoType) X(BdId) X(BsNoLinkEncap) X(BsVlanNum) \
  X(VlanBaseInfo) X(PruneIf) X(BsSpecifyIpat) X(VxlanEncodeVlan) X(BsOeSMAC) X(BsOeDMAC) X(SrcMac) \
  X(DstMac) X(DstAddr) X(NextHop) X(Svp) X(TunnelID) X(TunnelType) X(VrfIndex) X(SendPhyIfIndex) \
  X(IntfLen) X(VxlanHubSpkV2) X(VxlanVpeerlink) X(Uint32InfoByType) X(PruneType) X(AppendTlv)
// clang-format on

enum class EgressSetter : uint8_t {
#define VEX_EGRESS_ENUMERATOR(name) k##name,
  VEX_EGRESS_SETTERS(VEX_EGRESS_ENUMERATOR)
#undef VEX_EGRESS_ENUMERATOR
      kCount
};
constexpr size_t kEgressSetterCount = static_cast<size_t>(EgressSetter::kCount);
std::string_view EgressSetterName(EgressSetter setter);
constexpr size_t kTlv250Length = 4;  // this library's length of the value of TLV type 250

// One setting: its number (0 for settings that are bytes only), its second number (the type of
// Uint32InfoByType, PruneType and AppendTlv) and its bytes (addresses, MACs, prune record, TLV value).
struct EgressSetting {
  EgressSetter setter{};
  uint32_t value = 0;
  uint32_t type = 0;
  std::vector<uint8_t> bytes;
  friend bool operator==(const EgressSetting&, const EgressSetting&) = default;
};

struct EgressView {
  std::vector<EgressSetting> settings;  // in the order of the calls; a setter called twice is listed twice,
                                        // both with the last value
  static EgressView Decode(const HostEgressDesc& desc);
  const EgressSetting* Find(EgressSetter setter) const;  // null when it was not set
  uint32_t Value(EgressSetter setter) const;             // 0 when it was not set
  std::string ToString() const;                          // one line per setting
  friend bool operator==(const EgressView&, const EgressView&) = default;
};

struct PublishedPacket {
  PacketPtr packet;
  HostEgressDesc desc;
  uint32_t sourceId;
};

class EgressPort {
 public:
  // A sink answers 0 for sent; the packet is its own in any case. Without a sink packets are queued for
  // Take...().
  using PublishSink =
      std::function<uint32_t(PacketPtr packet, const HostEgressDesc& desc, uint32_t sourceId)>;
  using UploadSink = std::function<uint32_t(PacketPtr packet)>;
  void SetPublishSink(PublishSink sink);  // an empty function: back to the queue
  void SetUploadSink(UploadSink sink);

  uint32_t Publish(PacketPtr packet, const HostEgressDesc& desc, uint32_t sourceId);
  uint32_t Upload(PacketPtr packet);

  std::vector<PublishedPacket> TakePublished();
  std::vector<PacketPtr> TakeUploaded();
  struct Stats {
    uint64_t published = 0;
    uint64_t publishFailed = 0;
    uint64_t uploaded = 0;
    uint64_t uploadFailed = 0;
  };
  Stats GetStats() const;
  void NoteFailedPublish();
  void NoteFailedUpload();
  void Reset();  // no sinks, queues freed

 private:
  static constexpr size_t kQueueLimit = 4096;  // packets kept while nobody takes them
  mutable std::mutex mutex_;                   // guards everything; sinks are called without it
  std::shared_ptr<const PublishSink> publishSink_;
  std::shared_ptr<const UploadSink> uploadSink_;
  std::vector<PublishedPacket> published_;
  std::vector<PacketPtr> uploaded_;
  Stats stats_;
};
EgressPort& Egress();

}  // namespace vex::platform
