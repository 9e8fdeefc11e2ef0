// budgets_test.cpp - refusals summed up over samples, reports and the wrap of the module's 16-bit counters.
#include "host/live/budgets.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>

#include "host/session.h"
#include "platform/channel.h"
#include "platform/event_thread.h"
#include "platform/packet.h"
#include "test_paths.h"

namespace vex::host::live {
namespace {

class BudgetsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    platform::OpenServicePorts();
    config_.module.interfaces[3].v4 = {.enable = 1, .rate = 10};
    session_ = std::make_unique<Session>(VEX_MODULE_PATH, config_);
    session_->Configure();
    module_ = std::make_unique<LiveModule>(session_->module());
    budgets_.Attach(*module_, config_.module);
    record_ = module_->interface_record(3);
    ASSERT_NE(record_, nullptr);
  }
  void TearDown() override {
    budgets_.Detach();
    platform::Channels().Find("channel/vex2dhcp11")->Drain();
    session_->Close();
  }
  void Refuse(uint32_t count) {
    record_->v4Period.dropCnt = static_cast<uint16_t>(record_->v4Period.dropCnt + count);
    record_->v4Period.dropFlag = 1;
    refused_ += count;
  }
  // The module sends its report; the service reads it now or later.
  void Report() { session_->module().Fn<uint32_t()>("DhcpVexSnpInfoNotifyTimerCallBack")(); }
  void ReadReports() {
    platform::Channel* channel = platform::Channels().Find("channel/vex2dhcp11");
    while (platform::PacketPtr message = channel->Receive()) {
      DhcpSpeedInfoMsg report{};
      std::memcpy(&report, message->Data() + 264, sizeof report);
      budgets_.Reported(report);
    }
  }
  uint64_t Counted() const {
    for (const BudgetRow& row : budgets_.Rows()) {
      if (row.scope == Scope{ScopeKind::kInterface, 4, 3}) return row.refused;
    }
    return 0;
  }

  Config config_;
  std::unique_ptr<Session> session_;
  std::unique_ptr<LiveModule> module_;
  Budgets budgets_;
  DhcpSnpInfo* record_ = nullptr;
  uint64_t refused_ = 0;
};

TEST_F(BudgetsTest, NoRefusalIsLostOrCountedTwiceHoweverSamplesAndReportsFall) {
  std::mt19937 generator(7);
  const auto random = [&] { return static_cast<uint32_t>(generator()); };
  for (int step = 0; step < 2000; ++step) {
    switch (random() % 4) {
      case 0:
        Refuse(random() % 30000);
        break;
      case 1:
        Report();
        break;
      case 2:
        ReadReports();
        break;
      default:
        break;
    }
    budgets_.Sample();
    if (step % 2 == 0) continue;  // at most two refusals of 30000 between two complete looks: less than 65536
    ReadReports();
    budgets_.Sample();
    ASSERT_EQ(Counted(), refused_) << "step " << step;
  }
}

TEST_F(BudgetsTest, AReportUnderWayIsWaitedFor) {
  Refuse(100);
  budgets_.Sample();
  Refuse(50);
  Report();           // the module's counter is 0 again
  budgets_.Sample();  // must not take that for 65386 refusals
  EXPECT_EQ(Counted(), 100u);
  ReadReports();
  EXPECT_EQ(Counted(), 150u);
}

TEST_F(BudgetsTest, ARecordThatIsDeletedTakesNothingWithIt) {
  Refuse(40);
  budgets_.Sample();
  Config next = config_;
  next.module.interfaces.clear();
  budgets_.Attach(*module_, next.module);
  EXPECT_EQ(Counted(), 40u);
}

}  // namespace
}  // namespace vex::host::live
