// scope.h - the budgets that can refuse a frame, and what became of each over a replay. Plain values, no
// rules. In:  filled by the replay engine, which watches the store's records from outside. Out: the report's
// table of refusals, the JSON lines, and the story that explain tells.
#pragma once

#include <cstdint>
#include <string>

namespace vex::host {

// Ordered as the gates meet them. kPeerLinkOff: refused because the peer-link switch is off, no budget
// involved.
enum class ScopeKind : uint8_t { kInterface, kVlan, kGlobal, kDegrade, kPeerLink, kPeerLinkOff };

struct Scope {
  ScopeKind kind = ScopeKind::kGlobal;
  uint8_t version = 0;  // 4 or 6; 0: both (degrade, peer-link)
  uint32_t index = 0;   // interface index, VLAN id or peer-link kind 0 to 3; otherwise 0
  bool operator==(const Scope&) const = default;
};

// "interface 1", "VLAN 30", "global", "degrade", "peer-link DHCPv4 Request", "peer-link off"
std::string ScopeName(const Scope& scope);

// The scopes that refused one frame: at most interface, VLAN, global and degrade, or one of the peer-link.
struct ScopeList {
  Scope items[4];
  uint8_t count = 0;
  bool empty() const { return count == 0; }
  const Scope* begin() const { return items; }
  const Scope* end() const { return items + count; }
  void Add(const Scope& scope) {
    if (count < 4) items[count++] = scope;
  }
};

// One budget over a whole replay.
struct ScopeTally {
  Scope scope;
  uint32_t limit = 0;    // packets per second in force at the end
  uint64_t offered = 0;  // counting steps seen: passed + refused
  uint64_t passed = 0;
  uint64_t refused = 0;
  uint64_t worst_refused = 0;  // refusals in the worst second
  int64_t worst_second = 0;    // that second, as the module counts them
  // Refusals seen = reported + pending + lost, modulo 65536. The degrade budget reports nothing: all is
  // pending.
  uint64_t reported = 0;  // sum over the speed-info messages or peer-link lines seen
  uint64_t pending = 0;   // still in the record at the end
  uint64_t lost = 0;      // gone with deleted records
  bool Balanced() const { return ((reported + pending + lost - refused) & 0xFFFFU) == 0; }
};

}  // namespace vex::host
