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
  friend void PrintTo(const Variant& variant, std::ostream* out) { *out << variant.name; }
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
  const auto arp = [](const char* dir) { return std::string(dir) + "/libdb_arp.so"; };
  const auto mlag = [](const char* dir) { return std::string(dir) + "/libvex_mlag.so"; };
  const char *const all = VEX_OPTIONAL_DIR, *const noCreate = VEX_OPTIONAL_NO_CREATE_DIR,
                    *const noRelease = VEX_OPTIONAL_NO_RELEASE_DIR, *const noGet = VEX_OPTIONAL_NO_GET_DIR,
                    *const noMlag = VEX_OPTIONAL_NO_MLAG_DIR;
  const std::string lacksCreate = Missing(noCreate, "db_create_arp_obj"),
                    lacksRelease = Missing(noRelease, "db_release_arp_object"),
                    lacksGet = Missing(noGet, "db_get_arp_work_if_index"),
                    lacksMlag = "3[VEX-DHCP-DYNSO] dlsym mlag failed.(" + mlag(noMlag) +
                                ": undefined symbol: MLAG_VEX_SendPacketPublic)";
  return {
      {"none", {}, false, false, {kNoArp, kNoMlag}},
      {"both", {arp(all), mlag(all)}, true, true, {kArpBound, kMlagBound}},
      {"arp_only", {arp(all)}, true, false, {kArpBound, kNoMlag}},
      {"mlag_only", {mlag(all)}, false, true, {kNoArp, kMlagBound}},
      {"no_create", {arp(noCreate)}, false, false, {lacksCreate, kArpUnbound, kNoMlag}},
      {"no_release", {arp(noRelease)}, false, false, {lacksRelease, kArpUnbound, kNoMlag}},
      {"no_get", {arp(noGet), mlag(all)}, false, true, {lacksGet, kArpUnbound, kMlagBound}},
      {"no_mlag", {arp(all), mlag(noMlag)}, true, false, {kArpBound, lacksMlag}},
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

}  // namespace
}  // namespace vex::module_test
