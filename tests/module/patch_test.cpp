// patch_test.cpp - the hot-patch entry points.
// In:  every operation with the patch debug switch off, on and at another value. Out: result and exact lines.
#include <functional>

#include "dhcp_vex_api_patch.h"
#include "tests/module/egress_test.h"

namespace vex::module_test {
namespace {

using Lines = std::vector<std::string>;

struct PatchRecord {
  char other[397];
  char name[32];
};

uint32_t Sync(uint32_t code, const char* library, uint32_t expectedMatch) {
  PatchRecord record = {};
  std::strncpy(record.name, library, sizeof(record.name) - 1);
  uint32_t match = 99;
  const uint32_t result = libvex_dhcp_PAT_C2HSyncHookFunc(code, &record, &record, &match);
  EXPECT_EQ(match, expectedMatch) << library;
  return result;
}

TEST(PatchTest, EveryEntryPointLogsWhatItShould) {
  const Lines active = {"[DHCP-HA] dhcp vex reserved1 patch c2h active.",
                        "[DHCP-HA] dhcp vex reserved2 patch c2h active."};
  const Lines inactive = {"[DHCP-HA] dhcp vex reserved1 patch c2h deactive.",
                          "[DHCP-HA] dhcp vex reserved2 patch c2h deactive."};
  const auto failed = [](const char* code) {
    return Lines{std::string("dhcp vex c2h active or deactive oper failed, operCode ") + code};
  };
  const auto nothing = [](void (*stub)()) { return [stub] { return stub(), 0u; }; };
  const struct {
    const char* what;
    std::function<uint32_t()> call;
    uint32_t result;
    Lines always, debug;  // written whatever the switch, and while it is 1
  } kCases[] = {
      {"init", DHCP_PatchInit, 0, {"DHCP patch init ok."}, {}},
      {"timer",
       nothing(DHCP_Vex_PatchTimerCallBack),
       0,
       {},
       {"DHCP patch Timer prcoess start", "Enter dhcp stub reserved 1.", "DHCP patch Timer prcoess end"}},
      {"procedure", DHCP_Vex_PatchTimerProcessResved1, 0, {}, {"Enter dhcp stub reserved 1."}},
      {"active 1", nothing(DHCP_ResPatchC2hActivefunc1_vex), 0, {}, {active[0]}},
      {"active 2", nothing(DHCP_ResPatchC2hActivefunc2_vex), 0, {}, {active[1]}},
      {"inactive 1", nothing(DHCP_ResPatchC2hDeactivefunc1_vex), 0, {}, {inactive[0]}},
      {"inactive 2", nothing(DHCP_ResPatchC2hDeactivefunc2_vex), 0, {}, {inactive[1]}},
      {"operation 0", [] { return DHCP_VexPatchC2HOperFunc(0); }, 0, {}, active},
      {"operation 1", [] { return DHCP_VexPatchC2HOperFunc(1); }, 0, {}, inactive},
      {"operation 2", [] { return DHCP_VexPatchC2HOperFunc(2); }, 1, failed("2"), {}},
      {"sync 0", [] { return Sync(0, "libvex_dhcp.so", 1); }, 0, {}, active},
      {"sync 1", [] { return Sync(1, "libvex_dhcp.so", 1); }, 0, {}, inactive},
      {"sync 7", [] { return Sync(7, "libvex_dhcp.so", 1); }, 1, failed("7"), {}},
      {"sync max", [] { return Sync(0xFFFFFFFF, "libvex_dhcp.so", 1); }, 1, failed("4294967295"), {}},
      {"other library", [] { return Sync(7, "libvex_arp.so", 0); }, 0, {}, {}},
      {"shorter name", [] { return Sync(7, "libvex_dhcp", 0); }, 0, {}, {}},
      {"longer name", [] { return Sync(7, "libvex_dhcp.so.1", 0); }, 0, {}, {}},
      {"no name", [] { return Sync(7, "", 0); }, 0, {}, {}},
  };
  for (const auto& c : kCases) {
    for (const uint8_t debug : {uint8_t{0}, uint8_t{1}, uint8_t{2}}) {
      SCOPED_TRACE(std::string(c.what) + " with the switch at " + std::to_string(debug));
      g_dhcpVexPatchDbgSwitch = debug;
      LogCapture logs;
      EXPECT_EQ(c.call(), c.result);
      Lines expected = c.always;
      if (debug == 1) expected.insert(expected.end(), c.debug.begin(), c.debug.end());
      EXPECT_EQ(logs.Texts(LogOutput::kSyslog), expected);
      for (const auto& line : logs.Lines()) EXPECT_EQ(line.level, 6u);
    }
  }
}

TEST(PatchTest, NullPointersAreRefusedAndNothingIsWritten) {
  EXPECT_EQ(g_dhcpVexPatchTimer + g_dhcpPatchRes + (g_dhcpVexPatchResPtr != nullptr), 0u);
  PatchRecord record = {};
  std::strcpy(record.name, "libvex_dhcp.so");
  uint32_t match = 99;
  EXPECT_EQ(libvex_dhcp_PAT_C2HSyncHookFunc(0, nullptr, &record, &match), 1u);
  EXPECT_EQ(libvex_dhcp_PAT_C2HSyncHookFunc(0, &record, nullptr, &match), 1u);
  EXPECT_EQ(libvex_dhcp_PAT_C2HSyncHookFunc(0, &record, &record, nullptr), 1u);
  EXPECT_EQ(match, 99u);
}

// The record ends with the name's NUL: nothing behind it is read.
TEST(PatchTest, ARecordIsReadNoFurtherThanItsName) {
  for (const std::string name : {"", "lib", "libvex_dhcp.so"}) {
    std::vector<char> record(397 + name.size() + 1, 0);
    std::copy(name.begin(), name.end(), record.begin() + 397);
    uint32_t match = 99;
    libvex_dhcp_PAT_C2HSyncHookFunc(0, record.data(), record.data(), &match);
    EXPECT_EQ(match, name.size() == 14 ? 1u : 0u);
  }
}

}  // namespace
}  // namespace vex::module_test
