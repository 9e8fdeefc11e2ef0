// context.cpp - forwarding, uploads and notices of one service thread.
// In:  decisions about a frame. Out: messages on the return channel, counts, notices.
#include "service/context.h"

namespace vex::service {

void PortList::Set(std::vector<uint32_t> ports) {
  auto fresh = std::make_shared<const std::vector<uint32_t>>(std::move(ports));
  const std::lock_guard lock(mutex_);
  ports_ = std::move(fresh);
}

PortList::Ports PortList::Get() const {
  const std::lock_guard lock(mutex_);
  return ports_;
}

bool Desk::Trusted(const Ingress& in) const { return context_.module.is_trusted(in.port, in.vlan) == 1; }

void Desk::SendTo(Ingress& in, uint8_t tags, uint32_t port, int64_t now_ns) {
  Note(out_.SendPacket(std::move(in.packet), {port, in.port, in.vlan, tags}), in, now_ns);
}

Counter Desk::SendToTrusted(Ingress& in, uint8_t tags, Counter outcome, int64_t now_ns) {
  const PortList::Ports ports = context_.ports.Get();
  targets_.clear();
  for (const uint32_t port : *ports)
    if (port != in.port && context_.module.is_trusted(port, in.vlan) == 1) targets_.push_back(port);
  if (targets_.empty()) return Counter::kNoTrustedPort;
  for (size_t i = 0; i + 1 < targets_.size(); ++i) {
    platform::PacketPtr copy = platform::Packets().Copy(*in.packet, {"service/context", __LINE__});
    if (!copy)
      counters_.Count(in.port, Counter::kNoBuffer);
    else
      Note(out_.SendPacket(std::move(copy), {targets_[i], in.port, in.vlan, tags}), in, now_ns);
  }
  SendTo(in, tags, targets_.back(), now_ns);
  return outcome;
}

void Desk::Upload(Ingress& in, int64_t now_ns) { Note(out_.SendNdUpload(std::move(in.packet)), in, now_ns); }

void Desk::SendOwn(std::span<const uint8_t> frame, const platform::PacketAttributes& attr,
                   const Ingress& answers, uint8_t tags, int64_t now_ns) {
  platform::PacketPtr packet = platform::Packets().New(frame, attr, {"service/context", __LINE__});
  if (!packet) return counters_.Count(answers.port, Counter::kNoBuffer);
  Note(out_.SendPacket(std::move(packet), {answers.port, 0, answers.vlan, tags}), answers, now_ns);
}

void Desk::Note(bool sent, const Ingress& in, int64_t now_ns) {
  if (sent) return;
  counters_.Count(in.port, Counter::kSendRefused);
  Report(Notice::Kind::kSendRefused, in, {}, {}, "", now_ns);
}

void Desk::Report(Notice::Kind kind, const Ingress& in, const MacAddress& mac, const IpAddress& server,
                  std::string_view detail, int64_t now_ns) {
  if (!context_.notice) return;
  Notice notice{kind, now_ns, in.port, in.vlan, mac, server, std::string(detail)};
  if (limiter_.Admit(notice)) context_.notice(notice);
}

void Desk::Flush() {
  out_.Flush();
  context_.announcer.Flush();
}

}  // namespace vex::service
