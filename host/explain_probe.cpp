// explain_probe.cpp - the list of changes, and the forked processes that try them.
#include "host/explain_probe.h"

#include <fmt/format.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <span>
#include <type_traits>

#include "host/error.h"
#include "host/punt.h"
#include "host/settings.h"
#include "platform/packet.h"
#include "service/configure.h"

namespace vex::host {
namespace {

constexpr uint32_t kNoRate = 5000;  // the rate of a record that limits nothing

template <class T>
std::vector<uint8_t> BytesOf(const T& value) {
  static_assert(std::is_trivially_copyable_v<T>);
  std::vector<uint8_t> bytes(sizeof value);
  std::memcpy(bytes.data(), &value, sizeof value);
  return bytes;
}

template <class T>
T FromBytes(const std::vector<uint8_t>& bytes) {
  T value{};
  if (bytes.size() != sizeof value) throw InputError("explain: an experiment gave no answer");
  std::memcpy(&value, bytes.data(), sizeof value);
  return value;
}

// The child's side: everything into the pipe, then gone without any clean-up of the parent's objects.
[[noreturn]] void Child(int pipe_end, const std::function<std::vector<uint8_t>()>& work) {
  int code = 1;
  try {
    const std::vector<uint8_t> bytes = work();
    const auto size = static_cast<ssize_t>(bytes.size());
    code = write(pipe_end, bytes.data(), bytes.size()) == size ? 0 : 1;
  } catch (...) {  // the parent sees the exit code
  }
  _exit(code);
}

std::vector<uint8_t> ReadAll(int pipe_end) {
  std::vector<uint8_t> bytes(65536);
  size_t have = 0;
  for (;;) {
    const ssize_t got = read(pipe_end, bytes.data() + have, bytes.size() - have);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    have += static_cast<size_t>(got);
  }
  bytes.resize(have);
  return bytes;
}

bool SameScopes(const ScopeList& a, const ScopeList& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end());
}

}  // namespace

std::vector<uint8_t> InFork(const std::function<std::vector<uint8_t>()>& work) {
  int ends[2];
  if (pipe(ends) != 0) throw InputError(fmt::format("explain: no pipe: {}", std::strerror(errno)));
  std::fflush(nullptr);  // or the child would print it again
  const pid_t child = fork();
  if (child == 0) {
    close(ends[0]);
    Child(ends[1], work);
  }
  close(ends[1]);
  if (child < 0) {
    close(ends[0]);
    throw InputError(fmt::format("explain: no process for an experiment: {}", std::strerror(errno)));
  }
  std::vector<uint8_t> bytes = ReadAll(ends[0]);
  close(ends[0]);
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) throw InputError("explain: an experiment died");
  return bytes;
}

Outcome OutcomeOf(const FrameOutcome& frame) {
  Outcome outcome{
      frame.pkt_type,  frame.channel.value_or(Outcome::kNone), frame.taken, frame.verdict, frame.refused, 0,
      frame.refused_by};
  for (const uint8_t channel : frame.delivered)
    outcome.delivered = static_cast<uint16_t>(outcome.delivered | 1U << channel);
  return outcome;
}

bool SameFate(const Outcome& a, const Outcome& b) {
  return a.pkt_type == b.pkt_type && a.channel == b.channel && a.taken == b.taken && a.verdict == b.verdict &&
         a.refused == b.refused && a.delivered == b.delivered && SameScopes(a.refused_by, b.refused_by);
}

void Probe::Apply(const service::Settings& to) {
  service::Send(module_, service::RequestsBetween(config_.module, to));
}

// The rates over the peer-link are read from the capabilities only when their timer starts.
void Probe::LiftPeerLink() {
  for (uint32_t kind = 0; kind < DHCP_PEER_KINDS; ++kind) view_.peer_link[kind].pktRate = 0;
}

void Probe::AddSetting(std::vector<Change>& changes, const std::string& path, uint32_t value,
                       std::string_view words) {
  const SettingRef ref = ResolveSetting(path);
  if (ref.setting->get(*ref.setting, config_, ref.key) == std::vector<uint32_t>{value})
    return;  // it is so already
  changes.push_back({path, std::string(words), [this, ref, value] {
                       Config changed = config_;
                       ref.setting->set(*ref.setting, changed, ref.key, std::span(&value, 1));
                       Apply(changed.module);
                     }});
}

std::vector<Probe::Change> Probe::Changes() {
  std::vector<Change> changes;
  for (uint32_t number = 0; number < service::kSwitchCount; ++number) {
    const bool on = (config_.module.switches >> number & 1U) != 0;
    AddSetting(changes, fmt::format("switches.{}", service::kSwitchNames[number]), on ? 0 : 1,
               on ? "off" : "on");
  }
  // A frame with a priority tag, assigned by VLAN, is of port 0, which has no settings.
  const bool port_has_settings = held_.port.index >= kPortIndexRange.min;
  for (const uint32_t version : {4U, 6U}) {
    if (port_has_settings)
      AddSetting(changes, fmt::format("snooping.interface.{}.v{}.rate", held_.port.index, version), kNoRate,
                 "no limit");
    if (const uint32_t vlan = held_.parsed.vlan_id(); config_.module.vlans.contains(vlan))
      AddSetting(changes, fmt::format("snooping.vlan.{}.v{}.rate", vlan, version), kNoRate, "no limit");
    AddSetting(changes, fmt::format("snooping.global.v{}.rate", version), kNoRate, "no limit");
  }
  AddSetting(changes, "degrade_rate", service::kDegradeOff, "no limit");
  changes.push_back({"capabilities.mlag_v4_rate and mlag_v6_rate", "no limit", [this] { LiftPeerLink(); }});
  changes.push_back({"every limit", "lifted", [this] {
                       Config none;
                       none.module.switches = config_.module.switches;
                       Apply(none.module);
                       LiftPeerLink();
                     }});
  return changes;
}

std::vector<WhatIf> Probe::EverySetting() {
  std::vector<WhatIf> results;
  for (const Change& change : Changes()) {
    const auto bytes = InFork([&] {
      change.apply();
      return BytesOf(OutcomeOf(held_.present(false)));
    });
    results.push_back({change.setting, change.change, FromBytes<Outcome>(bytes)});
  }
  return results;
}

SwitchNeed Probe::Switches() {
  return FromBytes<SwitchNeed>(InFork([&] {
    const platform::PacketPtr packet =
        platform::Packets().New(held_.frame.bytes, AttributesOf(held_.parsed, held_.port));
    const auto wanted = [&](uint32_t bitmap) {
      service::Send(module_, {{service::Handler::kSwitch, service::kAllSwitches, bitmap, 0}});
      return packet && Ask(view_, packet.get(), false).pkt_type != kPktTypeNone;
    };
    SwitchNeed need;
    need.without = wanted(0);
    for (uint32_t number = 0; number < service::kSwitchCount; ++number)
      if (wanted(1U << number)) need.alone = static_cast<uint16_t>(need.alone | 1U << number);
    return BytesOf(need);
  }));
}

}  // namespace vex::host
