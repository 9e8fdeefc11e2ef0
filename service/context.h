// context.h - what the instances of the service share, and the way each of them acts on the outside.
// In:  the service's options. Out: tables with locks of their own (Context); forwarding, uploads and notices
// of one thread (Desk), everything counted.
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "service/announcer.h"
#include "service/clients.h"
#include "service/ethernet.h"
#include "service/ingress.h"
#include "service/leases.h"
#include "service/module_api.h"
#include "service/notice.h"
#include "service/statistics.h"

namespace vex::service {

// The ports to flood to; replaced as a whole.
class PortList {
 public:
  using Ports = std::shared_ptr<const std::vector<uint32_t>>;
  void Set(std::vector<uint32_t> ports);
  Ports Get() const;

 private:
  mutable std::mutex mutex_;
  Ports ports_ = std::make_shared<const std::vector<uint32_t>>();
};

struct Context {
  Context(const ModuleApi& api, NoticeSink sink, platform::Channel& out, size_t max_clients,
          size_t max_leases)
      : module(api),
        notice(std::move(sink)),
        return_channel(out),
        announcer(out, 2 * max_leases + 1024),
        clients(max_clients),
        leases(max_leases, announcer) {}
  const ModuleApi module;
  const NoticeSink notice;
  platform::Channel& return_channel;
  PortList ports;
  Announcer announcer;
  Clients clients;
  Leases leases;
};

// One thread's hands.
class Desk {
 public:
  explicit Desk(Context& context) : context_(context), out_(context.return_channel) {}

  bool Trusted(const Ingress& in) const;
  // Each hands the packet over: views into it are dead afterwards. Refusals are counted on the port it came
  // from.
  void SendTo(Ingress& in, uint8_t tags, uint32_t port, int64_t now_ns);
  Counter SendToTrusted(Ingress& in, uint8_t tags, Counter outcome,
                        int64_t now_ns);  // the outcome, or kNoTrustedPort
  void Upload(Ingress& in, int64_t now_ns);
  void SendOwn(std::span<const uint8_t> frame, const platform::PacketAttributes& attr, const Ingress& answers,
               uint8_t tags, int64_t now_ns);
  // A notice about a frame; server and detail as given.
  void Report(Notice::Kind kind, const Ingress& in, const MacAddress& mac, const IpAddress& server,
              std::string_view detail, int64_t now_ns);
  void Flush();

  Context& context() { return context_; }
  PortCounters& counters() { return counters_; }
  const PortCounters& counters() const { return counters_; }

 private:
  void Note(bool sent, const Ingress& in, int64_t now_ns);
  Context& context_;
  ReturnChannel out_;
  PortCounters counters_;
  NoticeLimiter limiter_;
  std::vector<uint32_t> targets_;  // kept for its memory
};

// What an instance does with a frame. Answers what became of it; the packet is moved out or freed by the
// caller.
class FrameHandler {
 public:
  enum class Stream : uint8_t { kArp, kIcmp, kDhcp };  // by the channel
  virtual ~FrameHandler() = default;
  virtual Counter Handle(Ingress& in, Stream stream, int64_t now_ns) = 0;
};

}  // namespace vex::service
