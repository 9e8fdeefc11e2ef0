// binding.cpp - names of binding kinds and changes, and when two bindings are one lease.
// In:  values. Out: text for reports and files.
#include "service/binding.h"

#include <array>
#include <tuple>

namespace vex::service {
namespace {

constexpr std::array<std::string_view, 5> kKinds = {"", "v4", "ia_na", "ia_ta", "ia_pd"};
constexpr std::array<std::string_view, 9> kChanges = {
    "", "made", "renewed", "restored", "released", "declined", "refused", "expired", "replaced"};

}  // namespace

std::string_view Name(BindingKind kind) {
  const auto index = static_cast<size_t>(kind);
  return index < kKinds.size() ? kKinds[index] : std::string_view();
}

std::optional<BindingKind> ParseBindingKind(std::string_view name) {
  for (size_t i = 1; i < kKinds.size(); ++i)
    if (kKinds[i] == name) return static_cast<BindingKind>(i);
  return std::nullopt;
}

std::string_view Name(BindingChange change) {
  const auto index = static_cast<size_t>(change);
  return index < kChanges.size() ? kChanges[index] : std::string_view();
}

bool SameLease(const Binding& a, const Binding& b) {
  const auto place = [](const Binding& x) { return std::tie(x.kind, x.address, x.prefix_length, x.vlan); };
  if (place(a) != place(b)) return false;
  return a.kind == BindingKind::kDhcp4 ? a.mac == b.mac : a.duid == b.duid;
}

}  // namespace vex::service
