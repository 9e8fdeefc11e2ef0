// service.h - the DHCP service's side as a whole: what a host starts, polls and asks.
// In:  the module's channels "channel/vex2dhcp0" to "11"; the ports; bindings of the last run.
// Out: packets, ND uploads and user-binding messages on "channel/dhcp2vex", event 2 signalled; statistics,
// notices, and the binding table built from the module's callback.
//
// How to read what comes back at the platform's sinks:
//  - a published packet (EgressPort::SetPublishSink) goes out of the one port in SendIfIndex (SendPhyIfIndex
//  is the
//    same); the frame keeps its tags, BsVlanNum says how many; VlanBaseInfo holds the VLAN as a 16-bit number
//    in host byte order (0: untagged) and two zero bytes; the TLV of type 250 holds the port it came in by
//    (32 bits, host byte order), 0 for a frame that the service made itself. One packet per destination port.
//  - an uploaded packet (SetUploadSink) is an ND message that passed: forward it as any other frame of its
//    attributes' ifIndex and vlanTag, without asking the hook again (its ndHookIgnore is set).
//  - attributes of a received packet stay with it; a packet the service made itself has none but appType.
//
// Order: load the module; construct a Service; Restore(); Start(); start the channel event threads; open the
// ports. Down: stop what feeds the hook, Stop(), let the channel events run until idle, stop their threads,
// destroy.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "dhcp_vex_rate_limit_notify.h"
#include "service/bindings.h"
#include "service/module_api.h"
#include "service/notice.h"
#include "service/statistics.h"

namespace vex::service {

enum class Mode : uint8_t {
  kAnswer,  // answers every request itself and uploads every ND message: closes the loop without a server
  kSnoop,   // a DHCP-snooping switch's control plane
};

struct Options {
  ModuleApi module{};
  Mode mode = Mode::kSnoop;
  uint32_t instances = 0;  // as the module's capability item 0 has it: 1 to 4; 0 and above 4 are one thread
  uint32_t channel_depth = 4096;  // of channels that do not exist yet
  std::vector<uint32_t> ports{};  // interface indexes; which are trusted the module says
  size_t max_bindings = 65536;    // leases known to the service, and bindings in the table
  size_t max_clients = 65536;     // clients with an exchange under way; the oldest gives way
  NoticeSink notice{};            // may be empty
  std::function<void(const DhcpSpeedInfoMsg&)>
      speed_info{};  // reports of refused packets, on a service thread
};

class Service {
 public:
  // Opens channels and threads by name and registers the callback. Throws std::runtime_error when the return
  // channel does not exist, which means that the module is not initialised.
  explicit Service(Options options);
  ~Service();  // stops
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  void Start();  // service threads, time from the platform's clock
  void Stop();   // ends them, frees what is still queued in the service's channels

  // Without threads: handles what is queued and what is due at that time (nanoseconds since the epoch).
  // Answers the messages handled. What the service sent waits for the channel event.
  size_t Poll(int64_t now_ns);

  // Bindings of the last run: they hold from now on and are announced like new ones, at the pace of the
  // channel.
  void Restore(std::span<const Binding> bindings, int64_t now_ns);
  void SetPorts(std::vector<uint32_t> ports);  // any time

  ServiceStats Stats() const;
  BindingTable& bindings();
  const BindingTable& bindings() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace vex::service
