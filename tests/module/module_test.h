// module_test.h - the module under test, started on a fresh stand-in, and shorthand for what tests look at.
// In:  switches, instances and store types as a test wants them. Out: the service's ends, the counters that
// moved, log lines; at the end every packet, block and timer accounted for.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "dhcp_vex_api.h"
#include "dhcp_vex_api_cfg.h"
#include "dhcp_vex_api_snoop.h"
#include "dhcp_vex_api_switch.h"
#include "dhcp_vex_pkt_diag.h"
#include "platform/board.h"
#include "platform/channel.h"
#include "platform/clock.h"
#include "platform/event_thread.h"
#include "platform/faults.h"
#include "platform/findings.h"
#include "platform/logs.h"
#include "platform/memory.h"
#include "platform/packet.h"
#include "platform/platform.h"
#include "tests/module/packet_builder.h"

namespace vex::module_test {

using platform::Fault;
using platform::FaultForm;
using platform::Faults;
using platform::Import;
using platform::LogCapture;
using platform::LogOutput;
using platform::PacketPtr;

using Stats = std::array<uint64_t, 8>;
inline Stats ReadStats() {
  Stats stats;
  std::copy(std::begin(g_dhcpStat), std::end(g_dhcpStat), stats.begin());
  return stats;
}

inline void SetSwitches(uint32_t bits) { g_dhcpVexCfgBitMap = bits; }
inline void SetInstances(uint32_t n) { g_dhcpVexSpecs[DHCP_SPEC_MULTICORE_SVC_NUM].value = n; }
inline void SetSpec(uint32_t index, uint32_t value) { g_dhcpVexSpecs[index].value = value; }

// Requests as the DHCP service sends them.
inline uint32_t Switch(uint32_t type, uint32_t val) {
  const DhcpCfgReq request = {val, type, 0};
  return DhcpCfg(&request);
}
inline uint32_t Configure(uint32_t type, uint32_t val, uint32_t index) {
  const DhcpSnpCfgReq request = {type, val, index};
  return DhcpSnpCfg(&request);
}
inline uint32_t Degrade(uint32_t rate) {
  const DhcpDegradeCfgReq request = {rate};
  return DhcpDegradeCfg(&request);
}

// Removes every record of the store by writing the defaults of what it holds.
inline void ClearStore() {
  for (DhcpDll* list : {&g_dhcpVexSnpIfInfo, &g_dhcpVexSnpVlanInfo}) {
    while (list->count != 0) {
      auto* record = reinterpret_cast<DhcpSnpInfo*>(list->link.next);
      DhcpDll& trusted = record->v4Cfg.trustIfList;
      while (trusted.link.next != &trusted.link) {
        DhcpVexDelSnpVlanTrustIf(
            &trusted, static_cast<uint32_t>(reinterpret_cast<DhcpTrustIfNode*>(trusted.link.next)->ifIndex));
      }
      trusted.count = 0;
      for (uint32_t type : {2u, 3u, 8u, 9u, 14u, 15u, 20u, 21u}) {
        DhcpVexSetSnpInfoByType(record, type, g_dhcpVexSetSnpCfg[type].defaultValue);
      }
      DhcpVexDelSnpInfo(list, record);
    }
  }
}

class ModuleTest : public ::testing::Test {
 protected:
  static constexpr uint32_t kNone = 0xFFFFFFFF;

  void SetUp() override {
    platform::Reset();
    ASSERT_EQ(DhcpVexInit(), 0u);
    ports_ = platform::OpenServicePorts(64);
    platform::TheClock().UseVirtual(kStart);
    stats_ = ReadStats();
  }

  void TearDown() override {
    Faults().Reset();
    Switch(DHCP_CFG_ALL, 0);
    ClearStore();
    DrainAll();
    EXPECT_THAT(platform::Audit(), ::testing::IsEmpty());
  }

  // Which counters moved since the start or the last call.
  Stats Moved() {
    const Stats now = ReadStats();
    Stats moved;
    for (size_t i = 0; i < now.size(); ++i) moved[i] = now[i] - stats_[i];
    stats_ = now;
    return moved;
  }

  // Packets waiting, by channel number.
  std::vector<size_t> Queued() const {
    std::vector<size_t> sizes;
    for (const auto* channel : ports_.channels) sizes.push_back(channel->Size());
    return sizes;
  }
  static std::vector<size_t> OneOn(std::initializer_list<size_t> channels) {
    std::vector<size_t> sizes(platform::kServiceChannelCount, 0);
    for (size_t c : channels) sizes[c] = 1;
    return sizes;
  }
  size_t DrainAll() {
    size_t count = 0;
    for (auto* channel : ports_.channels) count += channel == nullptr ? 0 : channel->Drain();
    return count;
  }
  Bytes Next(size_t channel) {
    const PacketPtr packet = ports_.channels[channel]->Receive();
    return packet == nullptr ? Bytes() : BytesIn(packet);
  }

  static Bytes BytesIn(const PacketPtr& packet) { return {packet->Bytes().begin(), packet->Bytes().end()}; }

  static constexpr int64_t kSecond = 1'000'000'000;
  static constexpr int64_t kStart = 1000 * kSecond;
  platform::ServicePorts ports_;
  Stats stats_{};
};

}  // namespace vex::module_test
