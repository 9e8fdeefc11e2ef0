// explain_view.cpp - calls of the module's exports, and differences of its records.
#include "host/explain_view.h"

#include <algorithm>

namespace vex::host {
namespace {

using Predicate = uint32_t(OrbMbuf*);
using KeyFunction = void(uint8_t* udp, uint8_t** key, uint32_t* length);

struct Row {
  uint8_t app_type;
  const char* function;
};
constexpr Row kPredicates[] = {
    {kAppArp, "DhcpIsArpPktNeed"},         {kAppIcmp, "DhcpIsIcmpEhcoReply"},
    {kAppIcmp, "DhcpIsIcmpPktNeed"},       {kAppDhcp4, "DhcpIsRequestPktNeed"},
    {kAppDhcp4, "DhcpIsReplyPktNeed"},     {kAppDhcp4, "DhcpIsDhcp4PktNeed"},
    {kAppIcmp6, "DhcpIsNdSnpPkt"},         {kAppIcmp6, "DhcpIsIcmpv6EhcoReply"},
    {kAppDhcp6, "DhcpIsV6RequestPktNeed"}, {kAppDhcp6, "DhcpIsV6ReplyPktNeed"},
    {kAppDhcp6, "DhcpIsDhcp6PktNeed"},
};
constexpr uint32_t kPktTypeDhcp = 2, kPktTypeNd = 12;
constexpr size_t kInstances = 0;  // the row of the instance count in the capability table

struct CapabilityRow {
  char name[64];
  uint32_t value;
};

struct Hash {
  explicit Hash(const platform::Module& module)
      : of(module.Fn<uint32_t(const uint8_t*, uint32_t)>("DhcpPktDistributeHashCal")) {}
  uint32_t (*of)(const uint8_t*, uint32_t);
};

ClientKey KeyAt(const platform::Packet& packet, const uint8_t* key, uint32_t length, const Hash& hash,
                std::string source) {
  const std::span<const uint8_t> bytes = packet.Bytes();
  ClientKey found{{key, key + length}, std::nullopt, hash.of(key, length), std::move(source)};
  if (key >= bytes.data() && key < bytes.data() + bytes.size())
    found.offset = static_cast<size_t>(key - bytes.data());
  return found;
}

std::vector<ClientKey> DhcpKey(const platform::Module& module, platform::Packet& packet) {
  const bool v4 = packet.attr.appType == kAppDhcp4;
  const char* name = v4 ? "DhcpGetChaddr" : "Dhcpv6PktGetHashKey";
  uint32_t left = 0, length = 0;
  uint8_t* key = nullptr;
  uint8_t* udp = module.Fn<uint8_t*(OrbMbuf*, uint32_t*)>("DhcpVexGetUdpHead")(&packet, &left);
  if (udp == nullptr) return {};
  module.Fn<KeyFunction>(name)(udp, &key, &length);
  const std::span<const uint8_t> bytes = packet.Bytes();
  const auto room = static_cast<size_t>(bytes.data() + bytes.size() - udp);
  if (key == nullptr || length == 0 || key < udp || static_cast<size_t>(key - udp) + length > room) return {};
  return {KeyAt(packet, key, length, Hash(module), name)};
}

// Changes a byte, or the instance count, and takes it back.
template <class T>
class Changed {
 public:
  Changed(T& place, T value) : place_(place), before_(place) { place = value; }
  ~Changed() { place_ = before_; }
  Changed(const Changed&) = delete;
  Changed& operator=(const Changed&) = delete;

 private:
  T& place_;
  T before_;
};

class NdKeySearch {
 public:
  NdKeySearch(const platform::Module& module, const ModuleView& view, platform::Packet& packet)
      : view_(view), packet_(packet), hash_(module), specs_(module.Var<CapabilityRow>("g_dhcpVexSpecs")) {}

  std::vector<ClientKey> Find() {
    std::vector<ClientKey> keys;
    const auto moving = MovingBytes();
    for (size_t from = 0; from < moving.size();) {
      size_t to = from;
      while (to < moving.size() && moving[to]) ++to;
      for (const size_t length : {size_t{6}, size_t{16}})
        if (to - from == length && Explains(from, length))
          keys.push_back(KeyAt(packet_, packet_.Bytes().data() + from, static_cast<uint32_t>(length), hash_,
                               "found by changing bytes"));
      from = std::max(to, from + 1);
    }
    return keys;
  }

 private:
  uint32_t Channel(uint32_t instances) {
    const Changed count(specs_[kInstances].value, instances);
    return view_.channel(&packet_, kPktTypeNd);
  }
  std::vector<bool> MovingBytes() {
    const std::span<uint8_t> bytes = packet_.Bytes();
    const size_t end = std::min<size_t>(bytes.size(), 256);
    const uint32_t channel = Channel(4);
    std::vector<bool> moving(end, false);
    for (size_t i = 0; i < end; ++i) {
      const Changed byte(bytes[i], static_cast<uint8_t>(bytes[i] ^ 1U));
      moving[i] = Channel(4) != channel;
    }
    return moving;
  }
  // The module's channel is a fixed distance from the hash of these bytes modulo the count, for every count.
  bool Explains(size_t from, size_t length) {
    const std::span<uint8_t> bytes = packet_.Bytes();
    const uint32_t first = Channel(1);
    const auto fits = [&] {
      const uint32_t hash = hash_.of(bytes.data() + from, static_cast<uint32_t>(length));
      for (const uint32_t count : {2U, 3U, 4U})
        if (Channel(count) != first + hash % count) return false;
      return true;
    };
    if (!fits()) return false;
    for (size_t i = from; i < from + length; ++i) {
      const Changed byte(bytes[i], static_cast<uint8_t>(bytes[i] ^ 0x5AU));
      if (!fits()) return false;
    }
    return true;
  }

  const ModuleView& view_;
  platform::Packet& packet_;
  Hash hash_;
  CapabilityRow* specs_;
};

}  // namespace

std::vector<Answer> AskPredicates(const platform::Module& module, platform::Packet& packet) {
  std::vector<Answer> answers;
  for (const Row& row : kPredicates)
    if (row.app_type == packet.attr.appType)
      answers.push_back({row.function, module.Fn<Predicate>(row.function)(&packet)});
  if (packet.attr.appType == kAppIcmp6) {
    uint32_t take = 0;
    answers.push_back({"DhcpIsIcmpv6PktNeed",
                       module.Fn<uint32_t(OrbMbuf*, uint32_t*)>("DhcpIsIcmpv6PktNeed")(&packet, &take)});
  }
  if (packet.attr.appType == kAppDhcp4 || packet.attr.appType == kAppDhcp6)
    answers.push_back({"DhcpIsNacDhcpCauseId", module.Fn<uint32_t(int32_t)>("DhcpIsNacDhcpCauseId")(
                                                   static_cast<int32_t>(packet.attr.causeAction & 0xFFFFU))});
  if (packet.attr.appType == kAppIcmp)
    answers.push_back({"DhcpGetInstFromIcmpPkt", module.Fn<Predicate>("DhcpGetInstFromIcmpPkt")(&packet)});
  return answers;
}

std::vector<ClientKey> FindKeys(const platform::Module& module, const ModuleView& view,
                                platform::Packet& packet, uint32_t pkt_type, uint32_t channel) {
  if (pkt_type == kPktTypeDhcp) return DhcpKey(module, packet);
  if (pkt_type != kPktTypeNd || channel >= kServiceChannels) return {};
  return NdKeySearch(module, view, packet).Find();
}

BudgetProbe::BudgetProbe(const ModuleView& view, platform::Packet& packet) {
  uint32_t interface = 0, vlan = 0;
  if (view.interface_and_vlan(&packet, &interface, &vlan) == 0) {
    AddRecord(ScopeKind::kInterface, interface, view.interface_record(interface));
    if (vlan != 0) AddRecord(ScopeKind::kVlan, vlan, view.vlan_record(vlan));
  }
  AddRecord(ScopeKind::kGlobal, 0, view.global_record);
  Add({ScopeKind::kDegrade, 0, 0}, view.degrade->period, view.degrade->degradeRate);
  for (uint32_t kind = 0; kind < DHCP_PEER_KINDS; ++kind)
    Add({ScopeKind::kPeerLink, 0, kind}, view.peer_link[kind].period, view.peer_link[kind].pktRate);
}

void BudgetProbe::AddRecord(ScopeKind kind, uint32_t index, const DhcpSnpInfo* record) {
  if (record == nullptr) return;
  Add({kind, 4, index}, record->v4Period, record->v4Cfg.pktRate);
  Add({kind, 6, index}, record->v6Period, record->v6Cfg.pktRate);
}

void BudgetProbe::Add(const Scope& scope, const DhcpSpeedPeriod& period, uint32_t limit) {
  budgets_.push_back({scope, &period, limit, period});
}

std::vector<BudgetStep> BudgetProbe::Steps() const {
  std::vector<BudgetStep> steps;
  for (const Budget& budget : budgets_) {
    const DhcpSpeedPeriod &was = budget.before, &is = *budget.period;
    const bool opened = was.periodSec != is.periodSec || was.periodMilSec != is.periodMilSec;
    const uint32_t charged = opened ? is.pktCnt : is.pktCnt - was.pktCnt;
    const auto refusals = static_cast<uint16_t>(is.dropCnt - was.dropCnt);
    if (charged != 0 || refusals != 0)
      steps.push_back({budget.scope, budget.limit, is.pktCnt - charged, charged, refusals});
  }
  return steps;
}

}  // namespace vex::host
