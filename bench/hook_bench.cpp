// hook_bench.cpp - what one call of the host hook costs, next to a floor.
// In:  libvex_dhcp.so as the device loads it, four instances, every gate active. Out: ns per packet.
// A floor makes the same framework calls in the same order as the hook does for that packet, with no logic
// between them, and reads the same clock; what the hook takes beyond it is the module's own.
#include <benchmark/benchmark.h>

#include <ctime>
#include <memory>
#include <vector>

#include "bench/frames.h"
#include "dhcp_vex_api_cfg.h"
#include "dhcp_vex_api_switch.h"
#include "dhcp_vex_platform.h"
#include "host/data_plane.h"
#include "host/punt.h"
#include "platform/board.h"
#include "platform/channel.h"
#include "platform/clock.h"
#include "platform/event_thread.h"
#include "platform/module_loader.h"
#include "platform/packet.h"

namespace {

using namespace vex;

constexpr char kPath[] = "bench";
constexpr uint32_t kInterface = 1;
constexpr uint32_t kVlan = 30;
constexpr uint32_t kHighestRate = 65535;      // the largest that a record can hold
constexpr int64_t kPacketsPerSecond = 60000;  // of module time, below every budget
constexpr int64_t kSecond = 1'000'000'000;
constexpr uint32_t kHeader = 24;

// The module and the service's ends of its channels, once for all benchmarks.
class Bench {
 public:
  Bench() {
    platform::TheClock().UseVirtual(kSecond);
    platform::TheBoard().SetCapability("DHCP_MULTICORE_SVC_NUM", 4);
    ports_ = platform::OpenServicePorts();
    module_ = platform::Module::Load(VEX_MODULE_PATH);
    Switches(0x7FFF);
    for (const uint32_t type : {0u, 2u, 4u, 12u, 14u, 16u}) Snooping(type, 1, IndexOf(type));  // limits on
    for (const uint32_t type : {1u, 3u, 5u, 13u, 15u, 17u}) Snooping(type, kHighestRate, IndexOf(type));
    const DhcpDegradeCfgReq degrade = {1'000'000};
    module_->Configure("DhcpDegradeCfg", &degrade);
  }

  void InterfaceRate(uint32_t rate) { Snooping(3, rate, kInterface); }
  platform::Channel& Channel(uint32_t number) { return *ports_.channels[number]; }
  platform::EventThread& Thread(uint32_t number) { return *ports_.threads[number]; }

  // Back to the packet as it was punted, wherever the hook put it.
  platform::PacketPtr TakeBack() {
    for (platform::Channel* channel : ports_.channels) {
      if (channel->Size() == 0) continue;
      platform::PacketPtr packet = channel->Receive();
      platform::CutHead(*packet, kHeader);
      return packet;
    }
    return nullptr;
  }

 private:
  static uint32_t IndexOf(uint32_t type) {
    const uint32_t scope = type % 6 / 2;
    return scope == 0 ? 0 : scope == 1 ? kInterface : kVlan;
  }
  void Switches(uint32_t bits) {
    const DhcpCfgReq req = {bits, DHCP_CFG_ALL, 0};
    module_->Configure("DhcpCfg", &req);
  }
  void Snooping(uint32_t type, uint32_t value, uint32_t index) {
    const DhcpSnpCfgReq req = {type, value, index};
    module_->Configure("DhcpSnpCfg", &req);
  }

  platform::ServicePorts ports_;
  std::unique_ptr<platform::Module> module_;
};

Bench& TheBench() {
  static Bench bench;
  return bench;
}

platform::PacketPtr Punted(const std::vector<uint8_t>& frame) {
  host::PortRecord port;
  port.index = kInterface;
  return platform::Packets().New(frame, host::AttributesOf(host::ParseFrame(frame), port));
}

// Module seconds go on, so that every budget is open.
void Tick(int64_t& packets) {
  if (++packets % kPacketsPerSecond == 0) platform::TheClock().Advance(kSecond);
}

void ReadClock() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  benchmark::DoNotOptimize(now);
}

// ---- Floors --------------------------------------------------------------------------------------------

void FloorClassifyDhcp(OrbMbuf* pkt) {
  benchmark::DoNotOptimize(HostMbufIsNdHookIgnore(pkt));
  benchmark::DoNotOptimize(HostMbufGetPktAppType(pkt));
  benchmark::DoNotOptimize(HostMbufGetL4DstPort(pkt));
  benchmark::DoNotOptimize(HostMbufGetMngIfFlag(pkt));
  benchmark::DoNotOptimize(HostMbufGetCauseAction(pkt));
}

void FloorSnoopingGate(OrbMbuf* pkt) {
  static OrbSpinlock lock = {};
  benchmark::DoNotOptimize(HostMbufGetOectrlIfIndex(pkt));
  benchmark::DoNotOptimize(HostMbufGetVlanTag(pkt));
  benchmark::DoNotOptimize(OrbSpinlockTrylock(&lock));
  ReadClock();
  benchmark::DoNotOptimize(HostMbufGetPktAppType(pkt));
  OrbSpinlockUnlock(&lock);
}

void FloorDeliver(OrbMbuf* pkt, platform::Channel& channel, platform::EventThread& thread) {
  static const uint8_t header[kHeader] = {kHeader};
  benchmark::DoNotOptimize(HostMbufGetAppPktType(pkt));
  benchmark::DoNotOptimize(HostMbufGetL2HeadLength(pkt));
  benchmark::DoNotOptimize(HostMbufGetProtoType(pkt));
  benchmark::DoNotOptimize(MbufPktAddHead(pkt, kHeader, kPath, __LINE__));
  benchmark::DoNotOptimize(memcpy_s(pkt->bufAddr + pkt->dataOff, kHeader, header, kHeader));
  benchmark::DoNotOptimize(ORB_ChannelDcSend(channel.Id(), pkt, 1000));
  benchmark::DoNotOptimize(ORB_EventWrite(&thread, 1));
}

void FloorUnwanted(OrbMbuf* pkt) {
  benchmark::DoNotOptimize(HostMbufIsNdHookIgnore(pkt));
  benchmark::DoNotOptimize(HostMbufGetPktAppType(pkt));
}

// ---- Benchmarks ----------------------------------------------------------------------------------------

void Unwanted(benchmark::State& state, bool floor) {
  TheBench();
  const platform::PacketPtr packet = Punted(bench::TcpFrame());
  for (auto _ : state) {
    if (floor) {
      FloorUnwanted(packet.get());
    } else {
      benchmark::DoNotOptimize(platform::Hooks().Call(platform::HookTable::kHostPacketPoint, packet.get()));
    }
  }
}

void Refused(benchmark::State& state, bool floor) {
  TheBench().InterfaceRate(0);
  const platform::PacketPtr packet = Punted(bench::Dhcp4Frame(kVlan));
  for (auto _ : state) {
    if (floor) {
      FloorClassifyDhcp(packet.get());
      FloorSnoopingGate(packet.get());
    } else {
      benchmark::DoNotOptimize(platform::Hooks().Call(platform::HookTable::kHostPacketPoint, packet.get()));
    }
  }
  TheBench().InterfaceRate(kHighestRate);
}

void Wanted(benchmark::State& state, const std::vector<uint8_t>& frame, bool floor) {
  Bench& bench = TheBench();
  platform::PacketPtr packet = Punted(frame);
  int64_t packets = 0;
  platform::TheClock().Advance(kSecond);  // what the last run counted is over
  for (auto _ : state) {
    OrbMbuf* const pkt = packet.release();
    if (floor) {
      FloorClassifyDhcp(pkt);
      FloorSnoopingGate(pkt);
      FloorDeliver(pkt, bench.Channel(3), bench.Thread(1));
    } else {
      benchmark::DoNotOptimize(platform::Hooks().Call(platform::HookTable::kHostPacketPoint, pkt));
    }
    packet = bench.TakeBack();
    if (!packet) {
      state.SkipWithError("the packet did not reach a channel");
      return;
    }
    Tick(packets);
  }
}

void Wanted4(benchmark::State& state, bool floor) { Wanted(state, bench::Dhcp4Frame(kVlan), floor); }
void Wanted6(benchmark::State& state, bool floor) { Wanted(state, bench::Dhcp6Frame(kVlan), floor); }

BENCHMARK_CAPTURE(Unwanted, hook, false);
BENCHMARK_CAPTURE(Unwanted, floor, true);
BENCHMARK_CAPTURE(Refused, hook, false);
BENCHMARK_CAPTURE(Refused, floor, true);
BENCHMARK_CAPTURE(Wanted4, hook, false);
BENCHMARK_CAPTURE(Wanted4, floor, true);
BENCHMARK_CAPTURE(Wanted6, hook, false);
BENCHMARK_CAPTURE(Wanted6, floor, true);

}  // namespace

BENCHMARK_MAIN();
