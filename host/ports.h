// ports.h - the device's ports, and which of them a recorded frame entered.
// In:  the ports of the configuration; a frame's capture interface, source MAC and outer tag.
// Out: the port: its index is the interface index that the module sees.
// A frame of a port that nobody configured gets a plain port of its own, so no frame is without one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/capture_reader.h"
#include "host/data_plane.h"

namespace vex::host {

struct PortRecord {
  uint32_t index = 0;                         // interface index
  std::string name;                           // "port N" when the configuration gives none
  std::optional<uint32_t> capture_interface;  // index - 1 when not given
  std::vector<MacAddress> macs;               // stations behind the port
  uint16_t vlan = 0;                          // access VLAN of a live port, 0: none
  bool trusted = false;
  bool management = false;
  bool peer_link = false;  // frames carry application packet type 2
  uint32_t cause = 0;      // cause id of the frames punted here
  bool operator==(const PortRecord&) const = default;
};

enum class PortBy : uint8_t { kInterface, kMac, kVlan };

class PortTable {
 public:
  // New ports by MAC end here; the stations beyond share the last one, so a flood of addresses costs bounded
  // memory.
  static constexpr size_t kMaxLearned = 65536;

  PortTable(const std::vector<PortRecord>& configured, PortBy by);

  // The port the frame entered; the reference stays good for the life of the table.
  const PortRecord& Assign(const Frame& frame, const ParsedFrame& parsed);

  const PortRecord* Find(uint32_t index) const;                      // null: neither configured nor seen yet
  uint64_t macs_beyond_limit() const { return macs_beyond_limit_; }  // frames that had to share the last port
 private:
  const PortRecord& ByInterface(uint32_t capture_interface);
  const PortRecord& ByIndex(uint32_t index);
  const PortRecord& ByMac(const MacAddress& mac);

  PortBy by_;
  std::unordered_map<uint32_t, PortRecord> ports_;  // by index; nodes do not move
  std::unordered_map<uint32_t, const PortRecord*> by_interface_;
  std::unordered_map<uint64_t, const PortRecord*> by_mac_;
  std::vector<const PortRecord*> recent_;  // by capture interface or VLAN id: the port found last time
  uint32_t next_index_ = 1;
  size_t learned_ = 0;
  const PortRecord* last_learned_ = nullptr;
  uint64_t macs_beyond_limit_ = 0;
};

}  // namespace vex::host
