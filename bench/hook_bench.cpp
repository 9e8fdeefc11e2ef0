// hook_bench.cpp - what one call of the host hook costs, next to a floor (bench/hook_floor.h).
// In:  libvex_dhcp.so as the device loads it, four instances, every gate active. Out: ns per packet.
// Both are called through the framework's hook table.
#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

#include "bench/frames.h"
#include "bench/hook_floor.h"
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

constexpr uint32_t kInterface = 1;
constexpr uint32_t kVlan = 30;
constexpr uint32_t kHighestRate = 65535;      // the largest that a record can hold
constexpr int64_t kPacketsPerSecond = 60000;  // of module time, below every budget
constexpr int64_t kSecond = 1'000'000'000;
constexpr uint32_t kHeader = 24;
constexpr uint32_t kFloorChannel = 3;
constexpr uint32_t kFloorThread = 1;

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

// ---- Benchmarks ----------------------------------------------------------------------------------------

constexpr uint32_t kPoint = platform::HookTable::kHostPacketPoint;

// The module's hook, or the floor in a table of its own.
const platform::HookTable& TableOf(platform::HookTable& own, platform::HookTable::Callback floor) {
  Bench& bench = TheBench();
  if (floor == nullptr) return platform::Hooks();
  g_floorTarget = {bench.Channel(kFloorChannel).Id(), &bench.Thread(kFloorThread), 1u << kFloorChannel};
  own.Register(kPoint, 0, floor, "floor");
  return own;
}

void NotTaken(benchmark::State& state, const std::vector<uint8_t>& frame,
              platform::HookTable::Callback floor) {
  platform::HookTable own;
  const platform::HookTable& table = TableOf(own, floor);
  const platform::PacketPtr packet = Punted(frame);
  for (auto _ : state) benchmark::DoNotOptimize(table.Call(kPoint, packet.get()));
}

void Unwanted(benchmark::State& state, platform::HookTable::Callback floor) {
  NotTaken(state, bench::TcpFrame(), floor);
}

void Refused(benchmark::State& state, platform::HookTable::Callback floor) {
  TheBench().InterfaceRate(0);
  NotTaken(state, bench::Dhcp4Frame(kVlan), floor);
  TheBench().InterfaceRate(kHighestRate);
}

void Wanted(benchmark::State& state, const std::vector<uint8_t>& frame, platform::HookTable::Callback floor) {
  platform::HookTable own;
  const platform::HookTable& table = TableOf(own, floor);
  platform::PacketPtr packet = Punted(frame);
  int64_t packets = 0;
  platform::TheClock().Advance(kSecond);  // what the last run counted is over
  for (auto _ : state) {
    benchmark::DoNotOptimize(table.Call(kPoint, packet.release()));
    packet = TheBench().TakeBack();
    if (!packet) {
      state.SkipWithError("the packet did not reach a channel");
      return;
    }
    Tick(packets);
  }
}

void Wanted4(benchmark::State& state, platform::HookTable::Callback floor) {
  Wanted(state, bench::Dhcp4Frame(kVlan), floor);
}

void Wanted6(benchmark::State& state, platform::HookTable::Callback floor) {
  Wanted(state, bench::Dhcp6Frame(kVlan), floor);
}

BENCHMARK_CAPTURE(Unwanted, hook, nullptr);
BENCHMARK_CAPTURE(Unwanted, floor, FloorUnwanted);
BENCHMARK_CAPTURE(Refused, hook, nullptr);
BENCHMARK_CAPTURE(Refused, floor, FloorRefused);
BENCHMARK_CAPTURE(Wanted4, hook, nullptr);
BENCHMARK_CAPTURE(Wanted4, floor, FloorWanted);
BENCHMARK_CAPTURE(Wanted6, hook, nullptr);
BENCHMARK_CAPTURE(Wanted6, floor, FloorWanted);

}  // namespace

BENCHMARK_MAIN();
