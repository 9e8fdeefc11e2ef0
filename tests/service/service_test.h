// service_test.h - a switch of two uplinks and some client ports around the real module, in virtual time.
// In:  frames that arrive at a port. Out: frames that leave, by port; uploads; bindings; counters. At the end
// every packet, block and timer is accounted for.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>

#include "dhcp_vex_api_cfg.h"
#include "platform/board.h"
#include "platform/channel_events.h"
#include "platform/clock.h"
#include "platform/egress.h"
#include "platform/module_loader.h"
#include "platform/platform.h"
#include "service/configure.h"
#include "service/service.h"
#include "test_paths.h"
#include "tests/service/messages.h"

namespace vex::service_test {

using service::Binding;
using service::BindingKind;
using service::Counter;
using service::Service;

class ServiceTest : public ::testing::Test {
 protected:
  static constexpr uint32_t kClientPort = 1, kOtherPort = 2, kRoguePort = 3, kUplink = 8, kUplink2 = 9;
  static constexpr uint32_t kSnoopSwitches =
      1u << 0 | 1u << 1 | 1u << 4 | 1u << 8 | 1u << 9 | 1u << 12 | 1u << 13;
  static constexpr int64_t kSecond = 1'000'000'000;
  static constexpr int64_t kStart = 1'000'000 * kSecond;

  void SetUp() override {
    platform::Reset();
    platform::TheClock().UseVirtual(kStart);
  }

  void TearDown() override {
    if (service_) service_->Stop();
    service_.reset();
    if (module_) Configure({});
    platform::Egress().Reset();
    module_.reset();
    EXPECT_THAT(platform::Audit(), ::testing::IsEmpty());
  }

  // Brings everything up. With one uplink, kUplink2 is an ordinary port.
  void Begin(uint32_t instances, service::Options options = {}, bool two_uplinks = true) {
    platform::TheBoard().SetCapability("DHCP_MULTICORE_SVC_NUM", instances);
    module_ = platform::Module::Load(VEX_MODULE_PATH);
    service::Settings settings = service::WithSwitches(kSnoopSwitches);
    settings.interfaces[kUplink].trusted = 1;
    if (two_uplinks) settings.interfaces[kUplink2].trusted = 1;
    Configure(settings);
    options.module = service::ModuleApi::Of(*module_);
    options.instances = instances;
    if (options.ports.empty()) options.ports = {kClientPort, kOtherPort, kRoguePort, kUplink, kUplink2};
    if (!options.notice)
      options.notice = [this](const service::Notice& notice) { notices_.push_back(notice.Text()); };
    service_ = std::make_unique<Service>(std::move(options));
  }

  void Configure(const service::Settings& settings) {
    const service::Handlers handlers{module_->Fn<uint32_t(const DhcpCfgReq*)>("DhcpCfg"),
                                     module_->Fn<uint32_t(const DhcpSnpCfgReq*)>("DhcpSnpCfg"),
                                     module_->Fn<uint32_t(const DhcpDegradeCfgReq*)>("DhcpDegradeCfg")};
    service::Send(handlers, service::RequestsBetween(configured_, settings));
    configured_ = settings;
  }

  // What the data plane says of a frame of these tests.
  static platform::PacketAttributes AttributesOf(const Buffer& bytes, uint32_t port, uint16_t vlan) {
    platform::PacketAttributes attr;
    attr.ifIndex = port;
    attr.vlanTag = vlan;
    attr.l2Length = vlan == 0 ? 14 : 18;
    const auto frame = service::ParseFrame(bytes);
    if (!frame) return attr;
    attr.protoType = frame->ip_src.v6 ? 1 : 0;
    attr.l4SrcPort = frame->src_port;
    attr.l4DstPort = frame->dst_port;
    attr.dstMac = frame->dst;
    attr.appType = frame->protocol == 58 ? 28 : frame->ip_src.v6 ? 32 : 17;
    return attr;
  }

  // The hook's verdict on the frame.
  static uint32_t Punt(const Buffer& bytes, const platform::PacketAttributes& attr) {
    auto packet = platform::Packets().New(bytes, attr);
    const uint32_t verdict = platform::Hooks().Call(platform::HookTable::kHostPacketPoint, packet.get());
    if (verdict != 0) (void)packet.release();
    return verdict;
  }
  static uint32_t Punt(const Buffer& bytes, uint32_t port, uint16_t vlan = 0) {
    return Punt(bytes, AttributesOf(bytes, port, vlan));
  }

  void Settle() {
    const int64_t now = platform::TheClock().NowNs();
    for (int i = 0; i < 3; ++i) {
      service_->Poll(now);
      platform::Events().RunUntilIdle();
    }
  }

  using Sent = std::map<uint32_t, std::vector<Buffer>>;  // by the port it leaves through
  Sent TakeSent() {
    Sent sent;
    for (const platform::PublishedPacket& packet : platform::Egress().TakePublished()) {
      const auto view = platform::EgressView::Decode(packet.desc);
      const auto bytes = packet.packet->Bytes();
      sent[view.Value(platform::EgressSetter::kSendIfIndex)].emplace_back(bytes.begin(), bytes.end());
    }
    return sent;
  }

  // The frame arrives, everything happens, and this is what left the switch.
  Sent Arrive(const Buffer& bytes, uint32_t port, uint16_t vlan = 0) {
    EXPECT_EQ(Punt(bytes, port, vlan), 0x1000000u) << "not taken";
    Settle();
    return TakeSent();
  }

  void Pass(int64_t seconds) {
    platform::TheClock().Advance(seconds * kSecond);
    Settle();
  }

  uint64_t Count(Counter counter) const { return service::ValueOf(service_->Stats().totals, counter); }
  uint64_t CountOn(uint32_t port, Counter counter) const {
    return service::ValueOf(service_->Stats().ports[port], counter);
  }
  std::vector<Binding> Bindings() const { return service_->bindings().Snapshot(); }
  void ExpectEveryMessageHasOneOutcome() const {
    const auto stats = service_->Stats();
    uint64_t outcomes = 0;
    for (size_t i = 0; i < service::kOutcomeCount; ++i) outcomes += stats.totals[i];
    EXPECT_EQ(outcomes, stats.received);
  }

  static uint64_t EndAfter(uint64_t seconds) {
    return static_cast<uint64_t>(platform::TheClock().NowNs() / kSecond) + seconds;
  }

  std::unique_ptr<platform::Module> module_;
  std::unique_ptr<Service> service_;
  service::Settings configured_;
  std::vector<std::string> notices_;
};

}  // namespace vex::service_test
