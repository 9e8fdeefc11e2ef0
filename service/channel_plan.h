// channel_plan.h - the service's channels: their names, who reads them and what they carry.
// In:  nothing. Out: constants for whoever creates the channels, drains them or labels them in a report.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace vex::service {

inline constexpr uint32_t kChannelCount = 12;
inline constexpr uint32_t kInnerChannel = 11;  // the module's own messages
inline constexpr uint32_t kMaxInstances = 4;

inline constexpr std::array<std::string_view, 5> kThreadNames = {
    "thread/vex2dhcp", "thread/vex2dhcp1", "thread/vex2dhcp2", "thread/vex2dhcp3", "thread/vex2dhcp4"};

struct ChannelRow {
  std::string_view name;
  uint32_t thread;  // index into kThreadNames; thread k + 1 is instance k
  std::string_view carries;
};

inline constexpr std::array<ChannelRow, kChannelCount> kChannels = {{
    {"channel/vex2dhcp0", 0, "ICMP, unassigned"},
    {"channel/vex2dhcp1", 0, "ARP"},
    {"channel/vex2dhcp2", 0, "DHCP, unassigned"},
    {"channel/vex2dhcp3", 1, "DHCP"},
    {"channel/vex2dhcp4", 2, "DHCP"},
    {"channel/vex2dhcp5", 3, "DHCP"},
    {"channel/vex2dhcp6", 4, "DHCP"},
    {"channel/vex2dhcp7", 1, "ICMP/ND"},
    {"channel/vex2dhcp8", 2, "ICMP/ND"},
    {"channel/vex2dhcp9", 3, "ICMP/ND"},
    {"channel/vex2dhcp10", 4, "ICMP/ND"},
    {"channel/vex2dhcp11", 0, "inner messages"},
}};

}  // namespace vex::service
