// Faults, memory, spinlock, bounded strings, logs, board: the small imports.
#include <cerrno>
#include <climits>
#include <cstring>

#include "platform/board.h"
#include "platform/faults.h"
#include "platform/logs.h"
#include "platform/memory.h"
#include "tests/platform/platform_fixture.h"

extern "C" void syslog(int priority, const char* format, ...);

namespace vex::platform {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class RuntimeTest : public PlatformTest {};

std::string Pattern(uint64_t calls) {  // one letter per call of an import with a failure result
  std::string pattern;
  uint32_t value = 0;
  for (uint64_t i = 0; i < calls; ++i) pattern += OrbCapabilityQueryItem("item", &value, 4) == 0 ? '.' : 'F';
  return pattern;
}

TEST_F(RuntimeTest, FaultsHitTheCallsTheyAreArmedFor) {
  TheBoard().SetCapability("item", 7);
  const Import import = Import::OrbCapabilityQueryItem;
  const struct {
    Fault fault;
    const char* pattern;
  } cases[] = {{{.import = import}, "FFFFF"},
               {{.import = import, .skip = 2}, "..FFF"},
               {{.import = import, .skip = 1, .times = 2}, ".FF.."},
               {{.import = Import::ORB_ChannelCreate}, "....."}};
  for (const auto& c : cases) {
    Faults().Reset();
    Faults().Arm(c.fault);
    EXPECT_EQ(Pattern(5), c.pattern);
    EXPECT_EQ(Faults().Calls(import), 5u);
  }
  Faults().FailNth(import, 3);
  EXPECT_EQ(Pattern(5), "..F..");
  Faults().Arm({.import = import, .code = 77});
  uint32_t value = 0;
  EXPECT_EQ(OrbCapabilityQueryItem("item", &value, 4), 77u);
  Faults().DisarmAll();
  EXPECT_EQ(Pattern(1), ".");
  EXPECT_EQ(g_watchedImports.load(), 0u) << "calls are fast again";
}

TEST_F(RuntimeTest, TheLedgerKnowsWhoHoldsMemory) {
  void* const first = OrbMemAllocInner(129, 0, 24, 0, "Creator", 10);
  void* const second = OrbMemAllocInner(129, 0, 100, 0, "Creator", 10);
  EXPECT_EQ(Memory().LiveBlocks(), 2u);
  EXPECT_EQ(Memory().LiveBytes(), 124u);
  EXPECT_THAT(Audit(),
              ElementsAre("2 memory block(s), 124 bytes, allocated by Creator (line 10) were never freed"));
  Memory().SetLimit(130);
  EXPECT_EQ(OrbMemAllocInner(129, 0, 7, 0, "Creator", 11), nullptr);
  EXPECT_EQ(OrbMemAllocInner(129, 0, 0, 0, "Creator", 12), nullptr);
  OrbMemFreeInner(first);
  OrbMemFreeInner(second);
  EXPECT_TRUE(Audit().empty());
  OrbMemFreeInner(first);
  ExpectFinding("not allocated");
  OrbMemFreeInner(nullptr);
}

TEST_F(RuntimeTest, SpinlocksExcludeAndNoticeMisuse) {
  OrbSpinlock lock{0xDEAD};
  ASSERT_EQ(OrbSpinlockInit(&lock), 0u);
  EXPECT_EQ(OrbSpinlockTrylock(&lock), 1u);
  EXPECT_EQ(OrbSpinlockTrylock(&lock), 0u);
  EXPECT_EQ(GetSpinlockStats().busyTries, 1u);
  EXPECT_DEATH(OrbSpinlockLock(&lock), "taken again by the thread that holds it");
  OrbSpinlockUnlock(&lock);
  OrbSpinlockUnlock(&lock);
  ExpectFinding("nobody holds");
  OrbSpinlockLock(&lock);
  OrbSpinlockUnlock(&lock);
  Faults().FailAlways(Import::OrbSpinlockTrylock);
  EXPECT_EQ(OrbSpinlockTrylock(&lock), 0u);
  EXPECT_EQ(lock.word, 0u) << "a try told to fail takes nothing";
}

TEST_F(RuntimeTest, BoundedCopiesNeverWriteBehindTheDestination) {
  const char source[] = "abcdefgh";
  const struct {
    const char* name;
    size_t destMax, count;
    const void* src;
    bool ok;
    const char* dest;  // all 8 bytes; '#' untouched, '0' zero
  } cases[] = {
      {"fits", 8, 3, source, true, "abc#####"},      {"fills", 8, 8, source, true, "abcdefgh"},
      {"too long", 4, 5, source, false, "0000####"}, {"no source", 4, 2, nullptr, false, "0000####"},
      {"no room", 0, 1, source, false, "########"},  {"negative", SIZE_MAX, 1, source, false, "########"},
      {"nothing", 4, 0, source, true, "########"},
  };
  for (const auto& c : cases) {
    char dest[8];
    std::memset(dest, '#', sizeof(dest));
    EXPECT_EQ(memcpy_s(dest, c.destMax, c.src, c.count) == 0, c.ok) << c.name;
    for (char& letter : dest) letter = letter == '\0' ? '0' : letter;
    EXPECT_EQ(std::string_view(dest, 8), c.dest) << c.name;
  }
  EXPECT_NE(memcpy_s(nullptr, 8, source, 1), 0);
  char text[8] = "abcdefg";
  EXPECT_NE(memcpy_s(text, 8, text + 1, 4), 0) << "overlap";
  EXPECT_NE(memset_s(text, 4, 'x', 5), 0);
  EXPECT_EQ(std::string_view(text, 4), "xxxx") << "filled as far as it reaches";
  EXPECT_EQ(memset_s(text, 8, 0, 8), 0);
}

int32_t Whole(char* dest, size_t destMax, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int32_t result = vsprintf_s(dest, destMax, format, args);
  va_end(args);
  return result;
}

int32_t Truncated(char* dest, size_t destMax, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int32_t result = vsnprintf_truncated_s(dest, destMax, format, args);
  va_end(args);
  return result;
}

TEST_F(RuntimeTest, FormattersRefuseOrTruncateWhatDoesNotFit) {
  char text[8];
  for (const auto format : {sprintf_s, Whole}) {
    EXPECT_EQ(format(text, 8, "%d", 1234567), 7);
    EXPECT_STREQ(text, "1234567");
    EXPECT_EQ(format(text, 8, "%d", 12345678), -1);
    EXPECT_STREQ(text, "");
    EXPECT_EQ(format(text, 0, "x"), -1);
    EXPECT_EQ(format(nullptr, 8, "x"), -1);
  }
  EXPECT_EQ(Truncated(text, 8, "%d", 123456789), 7);
  EXPECT_STREQ(text, "1234567");
  EXPECT_EQ(Truncated(text, 8, "%d", 12), 2);
  EXPECT_EQ(Truncated(text, 0, "x"), -1);
  Faults().FailAlways(Import::vsnprintf_truncated_s);
  EXPECT_EQ(Truncated(text, 8, "x"), -1);
}

TEST_F(RuntimeTest, EveryOutputReachesTheSinksThatAskedForIt) {
  syslog(6, "before anybody listens %d", 1);
  const LogCapture all;
  const LogCapture some(MaskOf(LogOutput::kSyslog) | MaskOf(LogOutput::kAssert));
  syslog(3 | (3 << 3), "line %u", 5u);  // with a facility
  OrbLog(4, "level %s", "four");
  OrbIMDebugReport(1, 2, "NULL", "text");
  EXPECT_EQ(HostDiagPrintf("%s", "trace"), 5);
  OrbMionAssert("src/a", 362, nullptr);
  using Line = LogCapture::Line;
  const Line sys{LogOutput::kSyslog, 3, "line 5", "", 0, 0},
      assertion{LogOutput::kAssert, 362, "", "src/a", 0, 0};
  EXPECT_THAT(all.Lines(), ElementsAre(sys, Line{LogOutput::kFrameworkLog, 4, "level four", "", 0, 0},
                                       Line{LogOutput::kDebugReport, 0, "text", "NULL", 1, 2},
                                       Line{LogOutput::kHostDiag, 0, "trace", "", 0, 0}, assertion));
  EXPECT_THAT(some.Lines(), ElementsAre(sys, assertion));
  EXPECT_EQ(Logs().Count(LogOutput::kSyslog), 2u) << "counted before anybody listened too";
}

TEST_F(RuntimeTest, ImMessagesAreSentOrFreedOnce) {
  const LogCapture log(MaskOf(LogOutput::kImAgent));
  void* message = ORB_ImAgentMsgCreate(9, 42);
  EXPECT_EQ(ORB_ImAgentAddPara(message, 25, 3, "abc"), 0u);
  EXPECT_EQ(ORB_ImAgentAddPara(message, 25, 2, "de"), 0u);
  EXPECT_THAT(Audit(), ElementsAre(HasSubstr("1 IM message(s)")));
  EXPECT_EQ(ORB_ImAgentSend(message), 0u);
  EXPECT_THAT(log.Lines(), ElementsAre(LogCapture::Line{LogOutput::kImAgent, 9, "abcde", "", 42, 2}));
  ORB_ImAgentMsgFree(message);
  ExpectFinding("free of an IM message that does not exist");
  message = ORB_ImAgentMsgCreate(9, 42);
  Faults().FailAlways(Import::ORB_ImAgentSend);
  EXPECT_NE(ORB_ImAgentSend(message), 0u);
  EXPECT_EQ(LiveImMessages(), 0u) << "the agent keeps it all the same";
}

uint32_t TakeOdd(OrbMbuf* pkt) { return pkt->dataLen % 2 == 1 ? 0x1000000 : 0; }
uint32_t TakeAll(OrbMbuf*) { return 7; }

TEST_F(RuntimeTest, HooksSeeThePacketInOrderUntilOneAnswers) {
  OrbMbuf odd{.bufAddr = nullptr, .dataOff = 0, .bufLen = 0, .dataLen = 1};
  OrbMbuf even = odd;
  even.dataLen = 2;
  EXPECT_EQ(HostHookRegister(18, 100, TakeOdd, "odd"), 0u);
  EXPECT_EQ(HostHookRegister(18, 100, TakeOdd, "odd"), 0u);
  EXPECT_EQ(Hooks().All().size(), 1u);
  EXPECT_EQ(Hooks().Call(18, &even), 0u);
  EXPECT_EQ(HostHookRegister(18, 101, TakeAll, "all"), 0u);
  EXPECT_EQ(Hooks().Call(18, &odd), 0x1000000u);
  EXPECT_EQ(Hooks().Call(18, &even), 7u);
  EXPECT_EQ(Hooks().Call(17, &odd), 0u);
  EXPECT_NE(HostHookRegister(18, 100, nullptr, "none"), 0u);
}

}  // namespace
}  // namespace vex::platform
