// settings.h - what the DHCP service configures in the module, as one value.
// In:  whoever holds the configuration (a file, a control socket, a test) fills it.
// Out: service/configure.h turns it, or the difference between two of them, into the handlers' requests.
// The defaults are the state of the module's store after start-up, except that no switch is on there.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <string_view>

namespace vex::service {

inline constexpr uint32_t kSwitchCount = 16;
inline constexpr uint32_t kDegradeOff = 0xFFFFFFFF;  // no global degrade limit

// The switches as files, command lines and reports spell them; the index is the switch number.
inline constexpr std::array<std::string_view, kSwitchCount> kSwitchNames = {
    "v4_req",       "v4_reply",    "sw2",         "sw3",          "v4_snooping", "v4_arp_a",
    "mng_v4_reply", "v4_arp_b",    "v6_req",      "v6_reply",     "mng_v4_req",  "mng_v6_reply",
    "v6_snooping",  "nd_snooping", "mng_v4_req2", "mlag_peerlink"};

// Limits of one scope for one IP version. Widths are those of the store's fields.
struct IpLimit {
  uint8_t enable = 0;      // 1: the rate limits
  uint16_t rate = 5000;    // packets per second; 5000 is "no limit"
  uint8_t aux_enable = 0;  // kept for the service, read by nothing in the module
  uint16_t aux = 100;      // likewise
  bool operator==(const IpLimit&) const = default;
};

struct GlobalSettings {
  IpLimit v4, v6;
  bool operator==(const GlobalSettings&) const = default;
};

struct InterfaceSettings {
  IpLimit v4, v6;
  uint32_t trusted = 0;  // non-zero: trusted
  bool operator==(const InterfaceSettings&) const = default;
};

struct VlanSettings {
  IpLimit v4, v6;
  std::set<uint32_t> trusted;  // interface indexes
  bool operator==(const VlanSettings&) const = default;
};

struct Settings {
  uint32_t switches = 0;  // bit n: switch n
  uint32_t degrade_rate = kDegradeOff;
  GlobalSettings global;
  std::map<uint32_t, InterfaceSettings> interfaces;
  std::map<uint32_t, VlanSettings> vlans;
  bool operator==(const Settings&) const = default;
};

inline Settings WithSwitches(uint32_t bitmap) {
  Settings settings;
  settings.switches = bitmap;
  return settings;
}

}  // namespace vex::service
