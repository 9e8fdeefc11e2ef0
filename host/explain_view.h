// explain_view.h - the module's answers about one packet: its predicates, its keys, its budgets.
// In:  a packet that has not met the hook. Out: answers as values. Nothing is changed in the module.
#pragma once

#include <vector>

#include "host/explain.h"
#include "host/module_view.h"
#include "platform/packet.h"

namespace vex::host {

// The exported classification predicates that concern the packet's application type, in the order in which
// the classification looks at them, and what they answer.
std::vector<Answer> AskPredicates(const platform::Module& module, platform::Packet& packet);

// The bytes by which the module chooses the instance. DHCP: as the exported key functions name them.
// Neighbour discovery has no such function: the packet's bytes are changed one at a time, and those that move
// the channel as the exported hash says are the key.
std::vector<ClientKey> FindKeys(const platform::Module& module, const ModuleView& view,
                                platform::Packet& packet, uint32_t pkt_type, uint32_t channel);

// All budgets that a packet of that interface and VLAN can meet, before and after it.
class BudgetProbe {
 public:
  BudgetProbe(const ModuleView& view, platform::Packet& packet);
  std::vector<BudgetStep> Steps() const;  // those that moved since the construction

 private:
  struct Budget {
    Scope scope;
    const DhcpSpeedPeriod* period;
    uint32_t limit;
    DhcpSpeedPeriod before;
  };
  void AddRecord(ScopeKind kind, uint32_t index, const DhcpSnpInfo* record);
  void Add(const Scope& scope, const DhcpSpeedPeriod& period, uint32_t limit);
  std::vector<Budget> budgets_;
};

}  // namespace vex::host
