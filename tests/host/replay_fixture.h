// replay_fixture.h - the built module replaying captures that a test writes frame by frame.
// In:  settings, frames with their times. Out: totals, and every outcome and event as one line of text.
// The module's state cannot be reset, so every test runs in a process of its own; Reload() gives a fresh one.
#pragma once

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "host/capture_writer.h"
#include "host/explain.h"
#include "host/replay.h"
#include "platform/board.h"
#include "platform/module_loader.h"
#include "platform/packet.h"
#include "platform/platform.h"
#include "service/configure.h"
#include "test_paths.h"
#include "tests/host/capture_bytes.h"
#include "tests/host/frame_builder.h"

namespace vex::host::testing {

// "3 snooping", "3 taken [5]", "event 1 7 12": what a test compares.
class LineSink final : public ReplaySink {
 public:
  void OnFrame(const FrameOutcome& o) override {
    std::string by;
    for (const Scope& scope : o.refused_by)
      by += fmt::format(" {}/{}/{}", int(scope.kind), scope.version, scope.index);
    lines.push_back(fmt::format(
        "{} port {} vlan {} app {} type {} take {} channel {} {}{}{} [{}]", o.frame, o.port, o.vlan,
        o.app_type, o.pkt_type, o.taken ? 1 : 0, o.channel ? int(*o.channel) : -1, Name(o.verdict),
        o.refused != Refusal::kNone ? " " : "", Name(o.refused), fmt::join(o.delivered, ",")));
    refused_by.push_back(by);
    short_lines.push_back(fmt::format("{}{}{} [{}]{}", Name(o.verdict),
                                      o.refused != Refusal::kNone ? " " : "", Name(o.refused),
                                      fmt::join(o.delivered, ","), by));
  }
  void OnEvent(const ReplayEvent& e) override {
    const std::string text = e.kind == ReplayEvent::Kind::kPeerLink
                                 ? std::string(e.text)
                                 : fmt::format("kind {} index {} dropped {}", e.speed_info.kind,
                                               e.speed_info.index_id, e.speed_info.dropped);
    short_lines.push_back(fmt::format("event before {}: {}", e.frame, text));
    lines.push_back(short_lines.back());
  }
  std::vector<std::string> lines, short_lines, refused_by;
};

class ReplayTest : public ::testing::Test {
 protected:
  ReplayTest() : capture_(Bytes{}, "replay"), writer_(std::make_unique<CaptureWriter>(capture_.path())) {}

  void Capability(const char* name, uint32_t value) { platform::TheBoard().SetCapability(name, value); }
  void Add(int64_t seconds, const Bytes& frame, uint32_t port = 0) {
    writer_->Write(frame, static_cast<uint32_t>(frame.size()), {seconds, 0}, port, "", "");
  }
  void Load() { module_ = platform::Module::Load(VEX_MODULE_PATH); }
  void Reload() {
    module_->Unload();
    Load();
  }
  ReplayTotals Run() {
    writer_->Finish();
    return Run({capture_.path()});
  }
  Story ExplainFrame(const Config& config, uint64_t frame) {
    writer_->Finish();
    Prepare({capture_.path()});
    options.sink = nullptr;
    return Explain(*module_, config, options, frame);
  }
  ReplayTotals Run(const std::vector<std::string>& files) {
    Prepare(files);
    ReplayTotals totals = RunReplay(*module_, options);
    EXPECT_TRUE(totals.IdentityHolds());
    for (const ScopeTally& tally : totals.scopes) EXPECT_TRUE(tally.Balanced()) << tally.scope.index;
    EXPECT_EQ(platform::Packets().Stats().inUse, 0u) << "every packet is given back";
    return totals;
  }
  void Prepare(const std::vector<std::string>& files) {
    if (!module_) Load();
    options.files = files;
    options.sink = &sink;
    options.configure = [this] {
      const service::Handlers handlers{module_->Fn<uint32_t(const DhcpCfgReq*)>("DhcpCfg"),
                                       module_->Fn<uint32_t(const DhcpSnpCfgReq*)>("DhcpSnpCfg"),
                                       module_->Fn<uint32_t(const DhcpDegradeCfgReq*)>("DhcpDegradeCfg")};
      const auto requests = service::RequestsBetween({}, settings);
      ASSERT_EQ(service::Send(handlers, requests), requests.size());
    };
  }

  service::Settings settings = service::WithSwitches(0x7FFF);
  ReplayOptions options;
  LineSink sink;
  std::unique_ptr<platform::Module> module_;

 private:
  TempFile capture_;
  std::unique_ptr<CaptureWriter> writer_;
};

}  // namespace vex::host::testing
