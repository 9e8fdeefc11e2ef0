// configure.cpp - settings as requests of the configuration service, and sending them.
// In:  two states of the settings. Out: the requests between them; the handlers' answers.
// The type numbers are the service's side of the protocol; what a type does is the module's business.
#include "service/configure.h"

#include <fmt/format.h>

#include <bit>

#include "dhcp_vex_api_cfg.h"
#include "platform/module_loader.h"

namespace vex::service {
namespace {

constexpr uint32_t kInterfaceTrust = 24;
constexpr uint32_t kVlanTrustAdd = 25;
constexpr uint32_t kVlanTrustRemove = 26;
constexpr uint32_t kVersion6 = 12;  // distance of the IPv6 types from the IPv4 ones

// The IPv4 types of one scope, in the order rate, aux, aux_enable, enable: a limit is complete before it
// works.
struct ScopeTypes {
  uint32_t rate, aux, aux_enable, enable;
};
constexpr ScopeTypes kGlobalTypes{1, 7, 6, 0};
constexpr ScopeTypes kInterfaceTypes{3, 9, 8, 2};
constexpr ScopeTypes kVlanTypes{5, 11, 10, 4};

// One record's requests. Values that leave a default go first: the store deletes a record, with its counters,
// the moment all of it is at the defaults, which must not happen on the way from one setting to another.
class RecordChange {
 public:
  explicit RecordChange(uint32_t index) : index_(index) {}

  void Set(uint32_t type, uint32_t from, uint32_t to, uint32_t default_value) {
    if (from == to) return;
    (to == default_value ? back_ : away_).push_back({Handler::kSnooping, type, to, index_});
  }
  void Limits(const ScopeTypes& types, uint32_t offset, const IpLimit& from, const IpLimit& to) {
    constexpr IpLimit kDefault;
    Set(types.rate + offset, from.rate, to.rate, kDefault.rate);
    Set(types.aux + offset, from.aux, to.aux, kDefault.aux);
    Set(types.aux_enable + offset, from.aux_enable, to.aux_enable, kDefault.aux_enable);
    Set(types.enable + offset, from.enable, to.enable, kDefault.enable);
  }
  void Add(uint32_t type, uint32_t value) { away_.push_back({Handler::kSnooping, type, value, index_}); }
  void Remove(uint32_t type, uint32_t value) { back_.push_back({Handler::kSnooping, type, value, index_}); }
  void AppendTo(std::vector<Request>& requests) const {
    requests.insert(requests.end(), away_.begin(), away_.end());
    requests.insert(requests.end(), back_.begin(), back_.end());
  }

 private:
  uint32_t index_;
  std::vector<Request> away_, back_;
};

RecordChange Change(uint32_t, const GlobalSettings& from, const GlobalSettings& to) {
  RecordChange change(0);
  change.Limits(kGlobalTypes, 0, from.v4, to.v4);
  change.Limits(kGlobalTypes, kVersion6, from.v6, to.v6);
  return change;
}

RecordChange Change(uint32_t index, const InterfaceSettings& from, const InterfaceSettings& to) {
  RecordChange change(index);
  change.Limits(kInterfaceTypes, 0, from.v4, to.v4);
  change.Limits(kInterfaceTypes, kVersion6, from.v6, to.v6);
  change.Set(kInterfaceTrust, from.trusted, to.trusted, 0);
  return change;
}

RecordChange Change(uint32_t index, const VlanSettings& from, const VlanSettings& to) {
  RecordChange change(index);
  change.Limits(kVlanTypes, 0, from.v4, to.v4);
  change.Limits(kVlanTypes, kVersion6, from.v6, to.v6);
  for (const uint32_t port : to.trusted)
    if (!from.trusted.contains(port)) change.Add(kVlanTrustAdd, port);
  for (const uint32_t port : from.trusted)
    if (!to.trusted.contains(port)) change.Remove(kVlanTrustRemove, port);
  return change;
}

// Every key of either map, in ascending order; a missing record is one at the defaults.
template <class Record>
void AppendRecords(const std::map<uint32_t, Record>& from, const std::map<uint32_t, Record>& to,
                   std::vector<Request>& requests) {
  std::set<uint32_t> keys;
  for (const auto& [key, record] : from) keys.insert(key);
  for (const auto& [key, record] : to) keys.insert(key);
  const auto at = [](const std::map<uint32_t, Record>& records, uint32_t key) {
    const auto found = records.find(key);
    return found == records.end() ? Record{} : found->second;
  };
  for (const uint32_t key : keys) Change(key, at(from, key), at(to, key)).AppendTo(requests);
}

// One switch is sent as itself; several are sent as one bitmap, so that no packet sees half of a set and the
// module decides about its timers once.
void AppendSwitches(uint32_t from, uint32_t to, std::vector<Request>& requests) {
  const uint32_t changed = from ^ to;
  if (changed == 0) return;
  const auto lowest = static_cast<uint32_t>(std::countr_zero(changed));
  if (std::has_single_bit(changed) && lowest < kSwitchCount)
    requests.push_back({Handler::kSwitch, lowest, to >> lowest & 1U, 0});
  else
    requests.push_back({Handler::kSwitch, kAllSwitches, to, 0});
}

// Hands the request, as its record, to deliver(name of the handler, record).
template <class Deliver>
uint32_t SendOne(const Request& request, const Deliver& deliver) {
  switch (request.handler) {
    case Handler::kSwitch:
      return deliver("DhcpCfg",
                     DhcpCfgReq{.val = request.value, .type = request.type, .indexId = request.index});
    case Handler::kSnooping:
      return deliver("DhcpSnpCfg",
                     DhcpSnpCfgReq{.type = request.type, .val = request.value, .indexId = request.index});
    case Handler::kDegrade:
      return deliver("DhcpDegradeCfg", DhcpDegradeCfgReq{.rate = request.value});
  }
  return 1;
}

template <class Deliver>
size_t SendAll(const std::vector<Request>& requests, const Deliver& deliver) {
  size_t accepted = 0;
  while (accepted < requests.size() && SendOne(requests[accepted], deliver) == 0) ++accepted;
  return accepted;
}

struct Direct {
  const Handlers& handlers;
  uint32_t operator()(const char*, const DhcpCfgReq& record) const { return handlers.switches(&record); }
  uint32_t operator()(const char*, const DhcpSnpCfgReq& record) const { return handlers.snooping(&record); }
  uint32_t operator()(const char*, const DhcpDegradeCfgReq& record) const {
    return handlers.degrade(&record);
  }
};

}  // namespace

std::vector<Request> RequestsBetween(const Settings& from, const Settings& to) {
  std::vector<Request> requests;
  Change(0, from.global, to.global).AppendTo(requests);
  AppendRecords(from.interfaces, to.interfaces, requests);
  AppendRecords(from.vlans, to.vlans, requests);
  if (from.degrade_rate != to.degrade_rate) requests.push_back({Handler::kDegrade, 0, to.degrade_rate, 0});
  AppendSwitches(from.switches, to.switches, requests);
  return requests;
}

size_t Send(const Handlers& handlers, const std::vector<Request>& requests) {
  return SendAll(requests, Direct{handlers});
}

size_t Send(platform::Module& module, const std::vector<Request>& requests) {
  return SendAll(requests, [&module](const char* handler, const auto& record) {
    return module.Configure(handler, &record);
  });
}

std::string Describe(const Request& request) {
  switch (request.handler) {
    case Handler::kSwitch:
      if (request.type == kAllSwitches) return fmt::format("DhcpCfg all switches 0x{:04x}", request.value);
      return fmt::format("DhcpCfg switch {} {}", request.type, request.value != 0 ? "on" : "off");
    case Handler::kSnooping:
      return fmt::format("DhcpSnpCfg type {} value {} index {}", request.type, request.value, request.index);
    case Handler::kDegrade:
      return fmt::format("DhcpDegradeCfg rate {}", request.value);
  }
  return "unknown request";
}

}  // namespace vex::service
