// drain_bench.cpp - what the return channel costs per message by kind, and the whole loop of an exchange.
// In:  libvex_dhcp.so, messages as the DHCP service writes them. Out: ns per message; messages per second.
// Single-threaded: the benchmark plays the service, runs the drain itself and discards what is published.
#include <benchmark/benchmark.h>

#include <array>
#include <cstring>
#include <memory>
#include <vector>

#include "bench/frames.h"
#include "dhcp_vex_api_cfg.h"
#include "dhcp_vex_api_event.h"
#include "dhcp_vex_api_switch.h"
#include "dhcp_vex_pkt_egress.h"
#include "host/data_plane.h"
#include "host/punt.h"
#include "platform/board.h"
#include "platform/channel.h"
#include "platform/channel_events.h"
#include "platform/clock.h"
#include "platform/egress.h"
#include "platform/event_thread.h"
#include "platform/module_loader.h"
#include "platform/packet.h"

namespace {

using namespace vex;

constexpr uint16_t kHeader = sizeof(DhcpHostEgressIntfInfo) + platform::kTlv250Length;
constexpr uint32_t kIngressHeader = 24;
constexpr size_t kBatch = 33;  // what one drain handles

uint32_t CountBinding(void* body, void* /*again*/) {
  benchmark::DoNotOptimize(body);
  return 0;
}

class Loop {
 public:
  Loop() {
    platform::TheClock().UseVirtual(1'000'000'000);
    platform::TheBoard().SetCapability("DHCP_MULTICORE_SVC_NUM", 4);
    ports_ = platform::OpenServicePorts();
    module_ = platform::Module::Load(VEX_MODULE_PATH);
    const DhcpCfgReq req = {0x7FFF, DHCP_CFG_ALL, 0};
    module_->Configure("DhcpCfg", &req);
    module_->Fn<uint32_t(uint32_t, DhcpVexEvtCallBack)>("DhcpVexEventCallBackReg")(DHCP_EVENT_USER_BIND,
                                                                                   CountBinding);
    platform::Egress().SetPublishSink(
        [](platform::PacketPtr, const HostEgressDesc&, uint32_t) { return 0u; });
    platform::Egress().SetUploadSink([](platform::PacketPtr) { return 0u; });
    back_ = platform::Channels().Find("channel/dhcp2vex");
  }

  // A message of the kind in front of a frame, sent back by the service.
  void SendBack(uint16_t kind, platform::PacketPtr packet) {
    platform::AddHead(*packet, kHeader);
    DhcpHostEgressIntfInfo info = {};
    info.intfType = kind;
    info.intfLen = kHeader;
    info.sendIfIndex = 1;
    std::memcpy(packet->Data(), &info, sizeof(info));
    back_->Send(packet);
  }

  void Drain() {
    platform::Events().Write(2);
    platform::Events().RunUntilIdle();
  }

  platform::PacketPtr TakeDelivered() {
    for (platform::Channel* channel : ports_.channels) {
      if (channel->Size() == 0) continue;
      platform::PacketPtr packet = channel->Receive();
      platform::CutHead(*packet, kIngressHeader);
      return packet;
    }
    return nullptr;
  }

 private:
  platform::ServicePorts ports_;
  std::unique_ptr<platform::Module> module_;
  platform::Channel* back_ = nullptr;
};

Loop& TheLoop() {
  static Loop loop;
  return loop;
}

platform::PacketPtr NewPacket(const bench::Frame& frame) {
  host::PortRecord port;
  port.index = 1;
  return platform::Packets().New(frame, host::AttributesOf(host::ParseFrame(frame), port));
}

// Building the message is part of the time and the same for every kind; `Message` measures it alone.
void Drain(benchmark::State& state, uint16_t kind) {
  Loop& loop = TheLoop();
  const bench::Frame frame = bench::Dhcp4Frame(1);
  for (auto _ : state) {
    for (size_t i = 0; i < kBatch; ++i) loop.SendBack(kind, NewPacket(frame));
    loop.Drain();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(kBatch));
}

void Message(benchmark::State& state) {
  const bench::Frame frame = bench::Dhcp4Frame(1);
  platform::Channel* channel = platform::Channels().Create("bench", 64);
  for (auto _ : state) {
    for (size_t i = 0; i < kBatch; ++i) {
      platform::PacketPtr packet = NewPacket(frame);
      platform::AddHead(*packet, kHeader);
      std::memset(packet->Data(), 0, sizeof(DhcpHostEgressIntfInfo));
      channel->Send(packet);
    }
    for (size_t i = 0; i < kBatch; ++i) benchmark::DoNotOptimize(channel->Receive());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(kBatch));
}

// Hook, service, return channel, publish: what one client message and its answer cost the device.
void WholeLoop(benchmark::State& state) {
  Loop& loop = TheLoop();
  std::vector<bench::Frame> frames;
  for (uint32_t client = 0; client < kBatch; ++client) frames.push_back(bench::Dhcp4Frame(1, client));
  for (auto _ : state) {
    for (const bench::Frame& frame : frames) {
      platform::Hooks().Call(platform::HookTable::kHostPacketPoint, NewPacket(frame).release());
      platform::PacketPtr delivered = loop.TakeDelivered();
      if (!delivered) {
        state.SkipWithError("the packet did not reach a channel");
        return;
      }
      loop.SendBack(1, std::move(delivered));
    }
    loop.Drain();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(kBatch));
}

BENCHMARK(Message);
BENCHMARK_CAPTURE(Drain, user_binding, DHCP_MSG_USER_BIND);
BENCHMARK_CAPTURE(Drain, nd_upload, DHCP_MSG_ND_UPLOAD);
BENCHMARK_CAPTURE(Drain, packet, 1);
BENCHMARK(WholeLoop);

}  // namespace

BENCHMARK_MAIN();
