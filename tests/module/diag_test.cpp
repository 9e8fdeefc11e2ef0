// diag_test.cpp - the diagnostic outputs: trace, dump, debug channel and diagnostic record.
// In:  texts around the size of their buffer, packets of odd shapes, formatters and agents that fail.
// Out: exactly what the framework's log services receive.
#include "tests/module/module_test.h"

namespace vex::module_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class DiagTest : public ModuleTest {
 protected:
  void TearDown() override {
    g_dhcpPktDump = 0;
    DhcpVexSetDbgSwitch(0);
    ModuleTest::TearDown();
  }
};

TEST_F(DiagTest, TheTraceTruncatesWhatDoesNotFit) {
  for (const size_t length : {size_t{0}, size_t{5}, size_t{1022}, size_t{1023}, size_t{1024}, size_t{5000}}) {
    const std::string text(length, 'x');
    const LogCapture log;
    EXPECT_EQ(DHCPDiagPrintf("%s", text.c_str()), static_cast<int32_t>(std::min<size_t>(length, 1023)));
    EXPECT_THAT(log.Texts(LogOutput::kHostDiag), ElementsAre(text.substr(0, 1023)));
  }
  const LogCapture log;
  DHCPDiagPrintf("%s", "100%s%n");  // a text is never a format
  EXPECT_THAT(log.Texts(LogOutput::kHostDiag), ElementsAre("100%s%n"));
  Faults().Arm({.import = Import::HostDiagPrintf, .code = 7});
  EXPECT_EQ(DHCPDiagPrintf("x"), 7);
  Faults().FailAlways(Import::vsnprintf_truncated_s);
  EXPECT_EQ(DHCPDiagPrintf("x"), -1);
  EXPECT_EQ(log.Lines().size(), 1u);
}

TEST_F(DiagTest, TheDebugChannelReportsWholeTextsOnly) {
  for (const uint32_t value : {0u, 256u, 0x100u}) {
    DhcpVexSetDbgSwitch(value);
    Faults().StartCounting();
    const LogCapture log;
    DhcpVexDebugOut(0, "%s", "text");
    EXPECT_THAT(log.Lines(), IsEmpty()) << value;
    EXPECT_EQ(Faults().Calls(Import::vsprintf_s), 0u);  // off: not even formatted
  }
  DhcpVexSetDbgSwitch(2);
  for (const size_t length : {size_t{0}, size_t{4}, size_t{1023}, size_t{1024}, size_t{5000}}) {
    const std::string text(length, 'x');
    const LogCapture log;
    DhcpVexDebugOut(3, "%s", text.c_str());
    EXPECT_EQ(log.Lines().size(), length < 1024 ? 1u : 0u) << length;
    if (length < 1024) {
      EXPECT_EQ(log.Lines()[0],
                (LogCapture::Line{LogOutput::kDebugReport, 0, text, "NULL", 0xDBBBC27C, 0xDBBBC27C}));
    }
  }
}

TEST_F(DiagTest, TheDiagnosticRecordIsSentWholeOrFreed) {
  const auto record = [](const std::string& text) {
    return LogCapture::Line{LogOutput::kImAgent, 9, "(vex), " + text, "", 0x0DBB1042, 2};
  };
  const LogCapture log;
  DhcpVexDiagLog(0, "%s", std::string(1024, 'x').c_str());
  EXPECT_THAT(log.Lines(), IsEmpty());
  const std::string longest(1023, 'x');
  DhcpVexDiagLog(0, "%s", longest.c_str());
  Faults().StartRecording();
  DhcpVexDiagLog(0, "rate %u", 5u);
  EXPECT_THAT(log.Lines(), ElementsAre(record(longest), record("rate 5")));
  std::vector<std::pair<uint64_t, uint64_t>> parameters;  // type and length
  for (const platform::Call& call : Faults().TakeRecorded()) {
    if (call.import == Import::ORB_ImAgentAddPara) parameters.emplace_back(call.args[1], call.args[2]);
  }
  EXPECT_THAT(parameters, ElementsAre(std::pair(25, 7), std::pair(25, 6)));
  struct {
    Import import;
    uint64_t nth, freed;
  } const failures[] = {{Import::vsprintf_s, 1, 0},
                        {Import::ORB_ImAgentMsgCreate, 1, 0},
                        {Import::ORB_ImAgentAddPara, 1, 1},
                        {Import::ORB_ImAgentAddPara, 2, 1},
                        {Import::ORB_ImAgentSend, 1, 0}};
  for (const auto& f : failures) {
    Faults().Reset();
    Faults().FailNth(f.import, f.nth);
    DhcpVexDiagLog(0, "lost");
    EXPECT_EQ(Faults().Calls(Import::ORB_ImAgentMsgFree), f.freed) << ImportName(f.import);
    EXPECT_LE(Faults().Calls(Import::ORB_ImAgentAddPara), f.nth == 1 && f.freed == 1 ? 1u : 2u);
    EXPECT_EQ(platform::LiveImMessages(), 0u);
  }
  EXPECT_EQ(log.Lines().size(), 2u);
}

std::string DumpOf(const Bytes& bytes) {
  std::string text;
  for (size_t i = 0; i < bytes.size(); ++i) {
    char hex[8];
    snprintf(hex, sizeof(hex), " %02X", bytes[i]);
    text += (i % 16 == 0 ? "\n" : "") + std::string(hex);
  }
  return text;
}

TEST_F(DiagTest, DumpsShowTheBufferFromAnOffsetOn) {
  Bytes bytes(300);
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 7);
  const Frame frame{bytes, {}};
  const auto shown = [&](size_t from, size_t to) {
    return DumpOf(
        Bytes(bytes.begin() + static_cast<ptrdiff_t>(from), bytes.begin() + static_cast<ptrdiff_t>(to)));
  };
  const PacketPtr packet = frame.Exact(10);
  const auto in = [&](size_t from, size_t to) { return "DHCP Recieve packet:" + shown(from, to); };
  const auto out = [&](size_t from, size_t to) { return "DHCP Send packet:" + shown(from, to); };
  const struct {
    uint32_t offset, direction;
    std::string line;
  } cases[] = {
      {0, 1, in(0, 128)},     {0, 0, out(0, 128)},    {172, 0, out(172, 300)},   {173, 0, out(173, 300)},
      {299, 1, in(299, 300)}, {300, 1, in(300, 300)}, {kNone, 0, out(300, 300)}, {0, 2, ""},
      {0, kNone, ""}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.offset << ", direction " << c.direction);
    for (const uint32_t on : {0u, 1u, 0x100u}) {
      g_dhcpPktDump = on;
      const LogCapture log;
      DhcpDiagDumpPacket(packet.get(), c.offset, c.direction);
      const bool written = on != 0 && !c.line.empty();
      ASSERT_EQ(log.Lines().size(), written ? 1u : 0u);
      if (written) {
        EXPECT_EQ(log.Lines()[0], (LogCapture::Line{LogOutput::kFrameworkLog, 4, c.line, "", 0, 0}));
      }
    }
  }
}

TEST_F(DiagTest, DumpsOfOddPackets) {
  g_dhcpPktDump = 1;
  const LogCapture log;
  PacketPtr packet = Frame{Bytes(40, 0xEE), {}}.Exact();
  packet->dataLen = 4;  // a short packet in a longer buffer: the buffer is shown
  DhcpDiagDumpPacket(packet.get(), 0, 1);
  packet->dataLen = 4000;  // one that claims more than the buffer
  DhcpDiagDumpPacket(packet.get(), 30, 1);
  packet->dataLen = 40;
  packet->dataOff = 41;  // one whose data starts behind the buffer
  DhcpDiagDumpPacket(packet.get(), 0, 1);
  packet->dataOff = 0;
  DhcpDiagDumpPacket(platform::Packets().NewWithoutBuffer({}).get(), 0, 1);
  const std::string head = "DHCP Recieve packet:";
  EXPECT_THAT(log.Texts(LogOutput::kFrameworkLog),
              ElementsAre(head + DumpOf(Bytes(40, 0xEE)), head + DumpOf(Bytes(10, 0xEE)), head, head));
  Faults().FailNth(Import::sprintf_s, 17);  // one byte cannot be formatted: no line at all
  DhcpDiagDumpPacket(packet.get(), 0, 1);
  EXPECT_EQ(log.Lines().size(), 4u);
}

}  // namespace
}  // namespace vex::module_test
