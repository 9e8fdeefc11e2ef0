// return_channel.h - the service's way out: messages behind an egress header on "channel/dhcp2vex".
// In:  frames with a destination port, ND messages to give back, bindings to announce. Out: messages on the
// channel; the channel event, once per batch. A packet that the channel refuses is freed here. Threads: one
// object per thread.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/channel.h"
#include "platform/packet.h"
#include "service/binding_message.h"

namespace vex::service {

inline constexpr std::string_view kReturnChannelName = "channel/dhcp2vex";
// The header's interface type for a packet out of one Ethernet port. Neither of the two message kinds.
inline constexpr uint16_t kEthernetPort = 1;

class ReturnChannel {
 public:
  explicit ReturnChannel(platform::Channel& channel) : channel_(channel) {}

  struct Destination {
    uint32_t port = 0;
    uint32_t from_port = 0;  // 0: made by the service
    uint16_t vlan = 0;
    uint8_t tags = 0;
  };
  // All three take the packet over. False: refused by the channel, or no room in front of it; freed.
  bool SendPacket(platform::PacketPtr packet, const Destination& to);
  bool SendNdUpload(platform::PacketPtr packet);
  bool SendBinding(const BindingMessage& message);

  void Flush();  // signals what was sent since the last time

 private:
  bool Send(platform::PacketPtr packet);
  platform::Channel& channel_;
  bool unsignalled_ = false;
};

}  // namespace vex::service
