// egress.cpp - where published and uploaded packets go: see egress.h; with the two imports that hand them
// over. In:  packets, which are the port's from then on, whatever the answer. Out: packets to the sinks or
// queues.
#include "platform/egress.h"

#include <utility>

#include "platform/faults.h"
#include "platform/findings.h"

namespace vex::platform {
namespace {

// Takes a packet over from the module; null, and a finding, when it was not the module's to give.
PacketPtr TakeOver(OrbMbuf* mbuf, const char* what) {
  if (mbuf == nullptr) return nullptr;
  Packet& packet = PacketOf(mbuf);
  if (packet.state.load(std::memory_order_relaxed) == PacketState::kOwned) return PacketPtr(&packet);
  ReportFinding(std::string(what) + " of a packet that is free or in a channel");
  return nullptr;
}

template <class Sink>
std::shared_ptr<const Sink> Shared(Sink sink) {
  return sink ? std::make_shared<const Sink>(std::move(sink)) : nullptr;
}

}  // namespace

EgressPort& Egress() {
  static EgressPort* const port = new EgressPort;
  return *port;
}

void EgressPort::SetPublishSink(PublishSink sink) {
  const std::lock_guard lock(mutex_);
  publishSink_ = Shared(std::move(sink));
}

void EgressPort::SetUploadSink(UploadSink sink) {
  const std::lock_guard lock(mutex_);
  uploadSink_ = Shared(std::move(sink));
}

uint32_t EgressPort::Publish(PacketPtr packet, const HostEgressDesc& desc, uint32_t sourceId) {
  std::unique_lock lock(mutex_);
  ++stats_.published;
  if (const auto sink = publishSink_; sink != nullptr) {
    lock.unlock();
    const uint32_t result = (*sink)(std::move(packet), desc, sourceId);
    if (result != 0) NoteFailedPublish();
    return result;
  }
  if (published_.size() >= kQueueLimit) {
    ++stats_.publishFailed;
    return 1;
  }
  published_.push_back({std::move(packet), desc, sourceId});
  return 0;
}

uint32_t EgressPort::Upload(PacketPtr packet) {
  std::unique_lock lock(mutex_);
  ++stats_.uploaded;
  if (const auto sink = uploadSink_; sink != nullptr) {
    lock.unlock();
    const uint32_t result = (*sink)(std::move(packet));
    if (result != 0) NoteFailedUpload();
    return result;
  }
  if (uploaded_.size() >= kQueueLimit) {
    ++stats_.uploadFailed;
    return 1;
  }
  uploaded_.push_back(std::move(packet));
  return 0;
}

std::vector<PublishedPacket> EgressPort::TakePublished() {
  const std::lock_guard lock(mutex_);
  return std::exchange(published_, {});
}

std::vector<PacketPtr> EgressPort::TakeUploaded() {
  const std::lock_guard lock(mutex_);
  return std::exchange(uploaded_, {});
}

EgressPort::Stats EgressPort::GetStats() const {
  const std::lock_guard lock(mutex_);
  return stats_;
}

void EgressPort::NoteFailedPublish() {
  const std::lock_guard lock(mutex_);
  ++stats_.publishFailed;
}

void EgressPort::NoteFailedUpload() {
  const std::lock_guard lock(mutex_);
  ++stats_.uploadFailed;
}

void EgressPort::Reset() {
  SetPublishSink({});
  SetUploadSink({});
  TakePublished();
  TakeUploaded();
  const std::lock_guard lock(mutex_);
  stats_ = {};
}

}  // namespace vex::platform

using namespace vex::platform;  // NOLINT: what follows is nothing but the C surface over that namespace

extern "C" {

uint32_t HostEgressPktPubWithSource(OrbMbuf* pkt, HostEgressDesc* desc, uint32_t sourceId) {
  const Outcome fault = Watch(Import::HostEgressPktPubWithSource, pkt, desc, sourceId);
  PacketPtr packet = TakeOver(pkt, "publish");
  if (fault) return fault.Code();
  return packet != nullptr && desc != nullptr ? Egress().Publish(std::move(packet), *desc, sourceId) : 1;
}

uint32_t HostUploadLdmByHook(OrbMbuf* pkt) {
  const Outcome fault = Watch(Import::HostUploadLdmByHook, pkt);
  PacketPtr packet = TakeOver(pkt, "upload");
  if (fault) return fault.Code();
  return packet != nullptr ? Egress().Upload(std::move(packet)) : 1;
}

}  // extern "C"
