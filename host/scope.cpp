// scope.cpp - names of the budgets, as reports and JSON spell them.
#include "host/scope.h"

#include <fmt/format.h>

#include <array>
#include <string_view>

namespace vex::host {

std::string ScopeName(const Scope& scope) {
  constexpr std::array<std::string_view, 4> kPeerLinkKinds = {"DHCPv4 request", "DHCPv4 reply",
                                                              "DHCPv6 request", "DHCPv6 reply"};
  switch (scope.kind) {
    case ScopeKind::kInterface:
      return fmt::format("interface {}", scope.index);
    case ScopeKind::kVlan:
      return fmt::format("VLAN {}", scope.index);
    case ScopeKind::kGlobal:
      return "global";
    case ScopeKind::kDegrade:
      return "degrade";
    case ScopeKind::kPeerLink:
      if (scope.index < kPeerLinkKinds.size())
        return fmt::format("peer-link {}", kPeerLinkKinds[scope.index]);
      return fmt::format("peer-link kind {}", scope.index);
    case ScopeKind::kPeerLinkOff:
      return "peer-link off";
  }
  return "unknown";
}

}  // namespace vex::host
