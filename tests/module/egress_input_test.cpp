// egress_input_test.cpp - the return channel is not trusted.
// In:  headers and lengths that contradict the buffer, random bytes; each message in a heap block of exactly
// its size. Out: what is counted, what the debug output says; the address sanitizer and the audit see the
// rest.
#include <random>

#include "tests/module/egress_test.h"

namespace vex::module_test {
namespace {

size_t g_calls = 0;
uint32_t CountCall(void* body, void*) {
  return ++g_calls, *static_cast<volatile uint8_t*>(body);
}  // it is there

class InputTest : public EgressTest {
 protected:
  void SetUp() override {
    EgressTest::SetUp();
    DhcpVexEventCallBackReg(0, CountCall);
    DhcpVexSetDbgSwitch(1);
    g_calls = 0;
  }
  void TearDown() override {
    DhcpVexEventCallBackUnReg(0, CountCall);
    DhcpVexSetDbgSwitch(0);
    EgressTest::TearDown();
  }
};

enum Fate { kCounted, kUncut, kNdUncut, kDropped };

TEST_F(InputTest, LengthsThatContradictTheBuffer) {
  const struct {
    const char* what;
    Message message;
    Fate fate;
  } kCases[] = {
      {"empty packet", Make(kEthernet).Cut(0), kDropped},
      {"one byte", Make(kBind).Cut(1), kDropped},
      {"a packet without its length field", Make(kEthernet).Cut(3), kDropped},
      {"a message without its whole length field", Make(kBind).Cut(3), kDropped},
      {"an upload without its whole length field", Make(kNd).Cut(3), kDropped},
      {"packet: header of 4 bytes", Make(kEthernet).Cut(4).Length(4), kDropped},
      {"packet: header cut short by a byte", Make(kEthernet).Cut(251), kDropped},
      {"packet: the shortest header, length behind it", Make(kEthernet).Cut(252), kUncut},
      {"packet: the shortest header alone", Make(kEthernet).Cut(252).Length(252), kCounted},
      {"packet: intfLen 0 cuts nothing", Make(kEthernet).Length(0), kCounted},
      {"packet: the header is everything", Make(kEthernet).Cut(kHeader), kCounted},
      {"packet: one byte too few", Make(kEthernet).Cut(kHeader - 1), kUncut},
      {"packet: intfLen 65535", Make(kEthernet).Length(65535), kUncut},
      {"binding: intfLen 0, the body is the header", Make(kBind).Length(0), kCounted},
      {"binding: 4 bytes, intfLen 0", Make(kBind).Length(0).Cut(4), kCounted},
      {"binding: 4 bytes, intfLen 3", Make(kBind).Length(3).Cut(4), kCounted},
      {"binding: 4 bytes, intfLen 4", Make(kBind).Length(4).Cut(4), kDropped},
      {"binding: a body of one byte", Make(kBind).Cut(kHeader + 1), kCounted},
      {"binding: no body", Make(kBind).Cut(kHeader), kDropped},
      {"binding: intfLen 65535", Make(kBind).Length(65535), kDropped},
      {"upload: intfLen 0 cuts nothing", Make(kNd).Length(0), kCounted},
      {"upload: 4 bytes, all header", Make(kNd).Length(4).Cut(4), kCounted},
      {"upload: one byte too few", Make(kNd).Length(5).Cut(4), kNdUncut},
      {"upload: intfLen 65535", Make(kNd).Length(65535), kNdUncut},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    LogCapture logs(platform::MaskOf(LogOutput::kDebugReport));
    Send(c.message);
    EXPECT_FALSE(Drain());
    EXPECT_EQ(Moved(), (Stats{0, c.fate == kCounted, 0, c.fate == kUncut}));
    const auto lines = logs.Texts(LogOutput::kDebugReport);
    const bool named = !lines.empty() && lines.back().starts_with("[ERR][VEX-DHCP]");
    EXPECT_EQ(named, c.fate == kDropped) << ::testing::PrintToString(lines);
    EXPECT_EQ(Published().size() + Uploaded().size() + std::exchange(g_calls, 0),
              c.fate == kCounted ? 1u : 0u);
  }
}

TEST_F(InputTest, APacketWithoutADataBufferIsDropped) {
  for (int i = 0; i < 2; ++i) {
    PacketPtr packet = platform::Packets().NewWithoutBuffer({});
    if (i == 1) packet->dataOff = 8;  // an offset into nothing
    EXPECT_EQ(DhcpVexProcUserBindMsgFromDhcp(packet.get()), 0u);
    ASSERT_TRUE(channel_->Send(packet));
    EXPECT_FALSE(Drain());
    EXPECT_EQ(Moved(), Stats{});
  }
  PacketPtr packet = Make(kEthernet).New();
  const uint16_t offset = std::exchange(packet->dataOff, static_cast<uint16_t>(packet->bufLen + 1));
  EXPECT_EQ(DhcpVexProcUserBindMsgFromDhcp(packet.get()), 0u);  // the data starts behind the buffer
  packet->dataOff = offset;
}

TEST_F(InputTest, RandomMessages) {
  std::mt19937 random(32);
  const uint16_t kinds[] = {kBind, kNd, kEthernet};
  for (int round = 0; round < 20000; ++round) {
    Message message;
    message.bytes.resize(random() % (round % 4 == 0 ? 600 : 270));
    for (uint8_t& byte : message.bytes) byte = static_cast<uint8_t>(random());
    if (round % 2 == 0 && message.bytes.size() >= 4)
      message = message.Put(0, 2, kinds[random() % 3]).Length(static_cast<uint16_t>(random() % 300));
    if (round % 5 == 0 && message.bytes.size() >= 246) message = message.Put(244, 2, 0);
    message.attr.appPktType = static_cast<uint32_t>(random() % 3);
    message.attr.diagSwitch = static_cast<uint32_t>(random() % 2);
    Send(message);
    if (round % 7 == 0) Drain();
    if (round % 50 == 0) Published(), Uploaded();
  }
  while (Drain()) Published(), Uploaded();
  EXPECT_EQ(channel_->Size(), 0u);
  EXPECT_GT(Moved()[1], 3000u);
  EXPECT_GT(g_calls, 500u);
}

}  // namespace
}  // namespace vex::module_test
