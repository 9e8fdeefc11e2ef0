// Channels, event threads and channel events, single-threaded; their behaviour among threads is in
// concurrency/.
#include "platform/channel.h"

#include "platform/channel_events.h"
#include "platform/event_thread.h"
#include "platform/faults.h"
#include "tests/platform/platform_fixture.h"

namespace vex::platform {
namespace {

using namespace std::chrono_literals;

class ChannelTest : public PlatformTest {
 protected:
  static PacketPtr Numbered(uint64_t number) { return Packets().New(CountingBytes(20), {.cookie = number}); }
};

TEST_F(ChannelTest, KeepsOrderAndRefusesAtItsDepth) {
  Channel* const channel = Channels().Create("channel/test", 3);
  uint64_t next = 0, expected = 0;
  for (int round = 0; round < 5; ++round) {  // the ring wraps at every place
    while (true) {
      PacketPtr packet = Numbered(next);
      if (!channel->Send(packet)) {
        EXPECT_NE(packet, nullptr) << "a refused packet stays its sender's";
        break;
      }
      ++next;
    }
    EXPECT_EQ(channel->Size(), 3u);
    for (int i = 0; i < 2; ++i) EXPECT_EQ(channel->Receive()->attr.cookie, expected++);
  }
  const ChannelStats stats = channel->Stats();
  EXPECT_EQ(stats.sent, next);
  EXPECT_EQ(stats.refused, 5u);
  EXPECT_EQ(stats.received, expected);
  EXPECT_EQ(stats.highWater, 3u);
  EXPECT_EQ(channel->Drain(), 1u);
  EXPECT_EQ(channel->Receive(), nullptr);
}

TEST_F(ChannelTest, IsFoundByNameOnceItExists) {
  EXPECT_EQ(ORB_ChannelGetIdByName("channel/test"), kNoChannel);
  const uint32_t id = ORB_ChannelCreate("channel/test", 4);
  ASSERT_NE(id, kNoChannel);
  EXPECT_NE(id, 0u);
  EXPECT_EQ(ORB_ChannelGetIdByName("channel/test"), id);
  EXPECT_EQ(ORB_ChannelCreate("channel/test", 4), id);
  EXPECT_EQ(ORB_ChannelCreate("channel/test", 5), kNoChannel) << "another depth";
  EXPECT_EQ(ORB_ChannelCreate("channel/none", 0), kNoChannel);
  EXPECT_EQ(ORB_ChannelCreate("", 1), kNoChannel);
  EXPECT_EQ(ORB_ChannelCreate(nullptr, 1), kNoChannel);
  Channels().Remove("channel/test");
  EXPECT_EQ(ORB_ChannelGetIdByName("channel/test"), kNoChannel);
  OrbMbuf* received = nullptr;
  EXPECT_NE(ORB_ChannelDcRecv(id, &received), 0u) << "the id of a removed channel";
  for (const uint32_t stranger : {0u, id, 100000u, kNoChannel}) {
    EXPECT_NE(ORB_ChannelDcSend(stranger, Numbered(1).get(), 1000), 0u);
  }
}

TEST_F(ChannelTest, ServicePortsHaveTheNamesTheModuleLooksFor) {
  Channels().Create("channel/vex2dhcp9", 1);
  const ServicePorts ports = OpenServicePorts(16);
  EXPECT_EQ(ports.channels[11], Channels().Find("channel/vex2dhcp11"));
  EXPECT_EQ(ports.channels[0]->Depth(), 16u);
  EXPECT_EQ(ports.channels[9]->Depth(), 1u) << "what exists is kept";
  EXPECT_EQ(ORB_ThreadInfoGetByName("thread/vex2dhcp"), ports.threads[0]);
  EXPECT_EQ(ORB_ThreadInfoGetByName("thread/vex2dhcp4"), ports.threads[4]);
  EXPECT_EQ(ORB_ThreadInfoGetByName("thread/vex2dhcp5"), nullptr);
}

TEST_F(ChannelTest, EventThreadsCollectBitsUntilTaken) {
  EventThread* const thread = EventThreads().Create("thread/test");
  EXPECT_EQ(ORB_EventWrite(thread, 1), 0u);
  EXPECT_EQ(ORB_EventWrite(thread, 2048), 0u);
  EXPECT_EQ(thread->Take(), 2049u);
  EXPECT_EQ(thread->Take(), 0u);
  EXPECT_EQ(ORB_EventWrite(thread, 4), 0u);
  EXPECT_EQ(thread->Wait(1h), 4u) << "does not wait for what is there";
  EXPECT_EQ(thread->Wait(1ms), 0u);
  thread->Interrupt();
  EXPECT_EQ(thread->Wait(1h), 0u);
  EXPECT_NE(ORB_EventWrite(nullptr, 1), 0u);
  EventThreads().Remove("thread/test");
  EXPECT_EQ(ORB_ThreadInfoGetByName("thread/test"), nullptr);
  EXPECT_NE(ORB_EventWrite(thread, 1), 0u) << "a handle from before";
}

int g_calls = 0;

TEST_F(ChannelTest, ChannelEventsStayPendingUntilTheCallerRunsThem) {
  g_calls = 0;
  EXPECT_NE(ORB_ChannelEventWritePublic(2), 0u) << "nobody serves it";
  EXPECT_NE(OrbChnEvtCallbackRegister(2, nullptr), 0u);
  ASSERT_EQ(OrbChnEvtCallbackRegister(2,
                                      [] {
                                        if (++g_calls < 3) ORB_ChannelEventWritePublic(2);
                                      }),
            0u);
  EXPECT_EQ(Events().RunPending(), 0u);
  EXPECT_EQ(ORB_ChannelEventWritePublic(2), 0u);
  EXPECT_EQ(ORB_ChannelEventWritePublic(2), 0u);
  EXPECT_EQ(g_calls, 0);
  EXPECT_EQ(Events().RunPending(), 1u) << "an event is a flag";
  EXPECT_EQ(g_calls, 1);
  EXPECT_TRUE(Events().AnyPending());
  EXPECT_EQ(Events().RunUntilIdle(), 2u);
  EXPECT_EQ(g_calls, 3);
}

}  // namespace
}  // namespace vex::platform
