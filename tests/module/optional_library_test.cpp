// optional_library_test.cpp - the ARP database and M-LAG libraries, present, absent and incomplete.
// In:  a directory per variant. Out: the slots, the wrappers' answers, the lines in their order.
// A library that was opened by its full path is the one that the module's request by name finds.
#include "dhcp_vex_egress_db_dynso.h"
#include "test_paths.h"
#include "tests/module/egress_test.h"

namespace vex::module_test {
namespace {

struct Variant {
  const char* name;
  std::vector<std::string> libraries;
  bool arp;
  bool mlag;
  std::vector<std::string> lines;  // priority, then how the line begins
};

const std::string kNoArp = "3[VEX-DHCP-DYNSO]dlopen libdb_arp.so error.(libdb_arp.so: ";
const std::string kArpBound = "6[VEX-DHCP-DYNSO] db arp symbol init.(ret:0)";
const std::string kArpUnbound = "6[VEX-DHCP-DYNSO] db arp symbol init.(ret:1)";
const std::string kNoMlag = "3[VEX-DHCP-DYNSO]dlopen libvex_mlag.so error.(libvex_mlag.so: ";
const std::string kMlagBound = "6[VEX-DHCP-DYNSO] db mlag symbol init ok.";
std::string Missing(const std::string& directory, const std::string& symbol) {
  return "3[VEX-DHCP-DYNSO] dlsym " + symbol + " failed.(" + directory +
         "/libdb_arp.so: undefined symbol: " + symbol + ")";
}

std::vector<Variant> Variants() {
  const std::string arp = "/libdb_arp.so", mlag = "/libvex_mlag.so";
  return {
      {"none", {}, false, false, {kNoArp, kNoMlag}},
      {"both", {VEX_OPTIONAL_DIR + arp, VEX_OPTIONAL_DIR + mlag}, true, true, {kArpBound, kMlagBound}},
      {"arp_only", {VEX_OPTIONAL_DIR + arp}, true, false, {kArpBound, kNoMlag}},
      {"mlag_only", {VEX_OPTIONAL_DIR + mlag}, false, true, {kNoArp, kMlagBound}},
      {"no_create",
       {VEX_OPTIONAL_NO_CREATE_DIR + arp},
       false,
       false,
       {Missing(VEX_OPTIONAL_NO_CREATE_DIR, "db_create_arp_obj"), kArpUnbound, kNoMlag}},
      {"no_release",
       {VEX_OPTIONAL_NO_RELEASE_DIR + arp},
       false,
       false,
       {Missing(VEX_OPTIONAL_NO_RELEASE_DIR, "db_release_arp_object"), kArpUnbound, kNoMlag}},
      {"no_get",
       {VEX_OPTIONAL_NO_GET_DIR + arp, VEX_OPTIONAL_DIR + mlag},
       false,
       true,
       {Missing(VEX_OPTIONAL_NO_GET_DIR, "db_get_arp_work_if_index"), kArpUnbound, kMlagBound}},
      {"no_mlag",
       {VEX_OPTIONAL_DIR + arp, VEX_OPTIONAL_NO_MLAG_DIR + mlag},
       true,
       false,
       {kArpBound, "3[VEX-DHCP-DYNSO] dlsym mlag failed.(" + std::string(VEX_OPTIONAL_NO_MLAG_DIR) + mlag +
                       ": undefined symbol: MLAG_VEX_SendPacketPublic)"}},
  };
}

class OptionalLibraryTest : public EgressTest, public ::testing::WithParamInterface<Variant> {
 protected:
  OptionalLibraryTest() : EgressTest(GetParam().libraries) {}
};

TEST_P(OptionalLibraryTest, BindsAllOrNothing) {
  const Variant& variant = GetParam();
  LogCapture logs;
  DhcpVexDbArpSymbolInit();
  DhcpVexDbMlagSymbolInit();
  std::vector<std::string> lines;
  for (const auto& line : logs.Lines()) {
    EXPECT_EQ(line.output, LogOutput::kSyslog);
    lines.push_back(std::to_string(line.level) + line.text);
  }
  ASSERT_EQ(lines.size(), variant.lines.size()) << ::testing::PrintToString(lines);
  for (size_t i = 0; i < lines.size(); ++i) EXPECT_THAT(lines[i], ::testing::StartsWith(variant.lines[i]));
  for (const DhcpDbFuncRow& row : g_dhcpDbArpFuncTbl)
    EXPECT_EQ(*row.slot != nullptr, variant.arp) << row.symbol;
  EXPECT_EQ(g_dhcp_mlag_vex_hookEgress != nullptr, variant.mlag);
}

TEST_P(OptionalLibraryTest, WrappersFailSoftlyWhileUnbound) {
  platform::Objects().SetArp(1, 2, 77);
  void* handle = nullptr;
  uint32_t workIf = 5;
  const int32_t expected = GetParam().arp ? 0 : 1;
  EXPECT_EQ(DHCP_db_create_arp_obj(3, 0, &handle), expected);
  EXPECT_EQ(handle != nullptr, GetParam().arp);
  if (handle != nullptr) {
    const uint32_t descriptor[4] = {0x10008}, key[2] = {1, 2};
    EXPECT_EQ(db_read_obj(handle, descriptor, key), 0);
  }
  EXPECT_EQ(DHCP_db_get_arp_work_if_index(handle, &workIf), expected);
  EXPECT_EQ(workIf, GetParam().arp ? 77u : 5u);
  DHCP_db_release_arp_object(handle);
  EXPECT_EQ(platform::Objects().LiveHandles(), 0u);
  if (GetParam().arp) {
    EXPECT_NE(DHCP_db_create_arp_obj(4, 0, &handle), 0) << "the library's answer";
  }
  const PacketPtr packet = Make(kEthernet, BytesOf("x")).New();
  EXPECT_EQ(DhcpVexDbMlagHookEgress(packet.get(), 9), GetParam().mlag ? 0u : 1u);
  const auto sends = platform::Objects().TakeMlagSends();
  ASSERT_EQ(sends.size(), GetParam().mlag ? 1u : 0u);
  if (GetParam().mlag) {
    EXPECT_EQ(sends[0].arg, 9u);
  }
}

INSTANTIATE_TEST_SUITE_P(, OptionalLibraryTest, ::testing::ValuesIn(Variants()),
                         [](const auto& variant) { return variant.param.name; });

TEST(OptionalLibraryTable, NamesItsSlotsInOrder) {
  const std::pair<void**, const char*> kRows[] = {{&g_dhcp_db_create_arp_obj, "db_create_arp_obj"},
                                                  {&g_dhcp_db_release_arp_object, "db_release_arp_object"},
                                                  {&g_db_get_arp_work_if_index, "db_get_arp_work_if_index"}};
  for (size_t i = 0; i < std::size(kRows); ++i) {
    EXPECT_EQ(g_dhcpDbArpFuncTbl[i].slot, kRows[i].first);
    EXPECT_STREQ(g_dhcpDbArpFuncTbl[i].symbol, kRows[i].second);
  }
}

}  // namespace
}  // namespace vex::module_test
