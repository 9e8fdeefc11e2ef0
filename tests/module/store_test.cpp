// store_test.cpp - the switches and the snooping store: records that come and go with their settings.
// In:  writes of every type, in order and at random; memory that runs out; damaged links. Out: records, lists
// and the trust test against a model of plain maps; every block accounted for.
#include <map>
#include <random>
#include <set>

#include "tests/module/module_test.h"

namespace vex::module_test {
namespace {

// ---- Switches -------------------------------------------------------------------------------------------

TEST(Switches, WritesOfOneSwitchAndOfTheWholeBitmap) {
  const struct {
    uint32_t val, type, ret, bitmap;
  } steps[] = {{5, 4, 0, 0x10},
               {1, 17, 1, 0x10},
               {1, 0xFFFF'FFFF, 1, 0x10},
               {1, 15, 0, 0x8010},
               {0, 4, 0, 0x8000},
               {0x1'0000, 0, 0, 0x8001},
               {0x000F, 16, 0, 0x0F},
               {0x1'0000, 16, 0, 0x1'0000},
               {0x8000'8000, 16, 0, 0x8000'8000}};
  for (const auto& s : steps) {
    EXPECT_EQ(DhcpVexSaveCfg(s.val, s.type, 99), s.ret);
    EXPECT_EQ(g_dhcpVexCfgBitMap, s.bitmap);
    for (uint32_t n = 0; n < 40; ++n) EXPECT_EQ(DhcpVexGetCfg(n), n < 16 ? s.bitmap >> n & 1 : 0);
  }
  EXPECT_EQ(DhcpVexGetCfg(0xFFFF'FFFF), 0u);
}

// ---- Store against a model ------------------------------------------------------------------------------

struct Settings {
  uint32_t rateEnable = 0, pktRate = 5000, auxEnable = 0, auxValue = 100;
  friend auto operator<=>(const Settings&, const Settings&) = default;
};
struct Record {
  Settings v4, v6;
  uint32_t trusted = 0;
  std::vector<uint32_t> list;  // trusted interfaces in the order of their coming
  bool IsDefault() const { return v4 == Settings{} && v6 == Settings{} && trusted == 0 && list.empty(); }
};

// The documented behaviour, with a map where the module has lists.
class Model {
 public:
  Record global;
  std::map<uint32_t, Record> scopes[2];  // interfaces, VLANs

  void Write(uint32_t type, uint32_t value, uint32_t index) {
    enum : uint32_t { kGlobal, kInterface, kVlan };
    const uint32_t scope = type < 24 ? type % 12 / 2 % 3 : type == 24 ? kInterface : kVlan;
    if (scope == kGlobal) return Apply(global, type, value);
    auto& records = scopes[scope - 1];
    const bool first = records.find(index) == records.end();
    if (first && value == Default(type)) return;
    Apply(records[index], type, value);
    if ((value == Default(type) || type >= 25) && records[index].IsDefault()) records.erase(index);
  }
  static uint32_t Default(uint32_t type) {
    if (type >= 25) return 0xFFFF'FFFF;
    return type == 24 || type % 2 == 0 ? 0 : type % 12 < 6 ? 5000 : 100;
  }
  bool Trusted(uint32_t ifIndex, uint32_t vlan) {
    if (scopes[0].count(ifIndex) != 0 && scopes[0][ifIndex].trusted != 0) return true;
    if (scopes[1].count(vlan) == 0) return false;
    const auto& list = scopes[1][vlan].list;
    return std::find(list.begin(), list.end(), ifIndex) != list.end();
  }

 private:
  static void Apply(Record& record, uint32_t type, uint32_t value) {
    auto& list = record.list;
    const auto listed = std::find(list.begin(), list.end(), value);
    if (type == 24) record.trusted = value;
    if (type == 25 && listed == list.end()) list.push_back(value);
    if (type == 26 && listed != list.end()) list.erase(listed);
    if (type >= 24) return;
    Settings& s = type < 12 ? record.v4 : record.v6;
    const bool aux = type % 12 >= 6;
    if (type % 2 == 0) (aux ? s.auxEnable : s.rateEnable) = value & 0xFF;
    if (type % 2 != 0) (aux ? s.auxValue : s.pktRate) = value & 0xFFFF;
  }
};

Settings Read(const DhcpSnpIpCfg& cfg) { return {cfg.rateEnable, cfg.pktRate, cfg.auxEnable, cfg.auxValue}; }

void ExpectRecord(const DhcpSnpInfo& record, const Record& expected) {
  EXPECT_EQ(Read(record.v4Cfg), expected.v4);
  EXPECT_EQ(Read(record.v6Cfg), expected.v6);
  EXPECT_EQ(record.reserved, 0u);
  const DhcpDll& trust = record.v4Cfg.trustIfList;
  EXPECT_EQ(trust.count, expected.trusted != 0 ? expected.trusted : expected.list.size());
  std::vector<uint32_t> list;
  for (const DhcpDllNode* node = trust.link.next; node != &trust.link; node = node->next) {
    EXPECT_EQ(node->next->prev, node);
    list.push_back(static_cast<uint32_t>(reinterpret_cast<const DhcpTrustIfNode*>(node)->ifIndex));
  }
  EXPECT_EQ(list, expected.list);
  EXPECT_EQ(record.v6Cfg.trustIfList.count, 0u);
}

class StoreTest : public ModuleTest {
 protected:
  void ExpectStore(const Model& model) {
    ExpectRecord(g_dhcpSnpGblInfo, model.global);
    size_t blocks = 0;
    const DhcpDll* lists[] = {DhcpVexGetSnpIfInfoDll(), DhcpVexGetSnpVlanInfoDll()};
    for (size_t scope = 0; scope < 2; ++scope) {
      EXPECT_EQ(lists[scope]->count, model.scopes[scope].size());
      for (const auto& [index, expected] : model.scopes[scope]) {
        const DhcpSnpInfo* record =
            scope == 0 ? DhcpVexGetSnpIfInfoByIfIndex(index) : DhcpVexGetSnpVlanInfoByVlanId(index);
        ASSERT_NE(record, nullptr);
        ExpectRecord(*record, expected);
        blocks += 1 + expected.list.size();
      }
    }
    EXPECT_EQ(platform::Memory().LiveBlocks(), blocks);
  }
};

TEST_F(StoreTest, RandomWritesOfEveryType) {
  std::mt19937 random(20240501);
  const auto pick = [&random](size_t n) { return static_cast<uint32_t>(random() % n); };
  const uint32_t values[] = {0, 1, 2, 99, 100, 101, 256, 4464, 5000, 70000, 65636, 0xFFFF'FFFF};
  Model model;
  for (int step = 0; step < 40000 && !HasFailure(); ++step) {
    const uint32_t type = pick(27), index = pick(3) + 7;
    uint32_t value = values[pick(std::size(values))];
    if (pick(2) == 0) value = type >= 25 ? pick(4) + 6 : Model::Default(type);
    SCOPED_TRACE(testing::Message() << "step " << step << ": type " << type << ", value " << value);
    EXPECT_EQ(DhcpVexSaveSnpCfg(value, type, index), 0u);
    model.Write(type, value, index);
    if (step % 16 == 0) ExpectStore(model);
    const uint32_t ifIndex = pick(5) + 6, vlan = pick(5) + 6;
    EXPECT_EQ(DhcpVexCheckIfSnpTrusted(ifIndex, vlan), model.Trusted(ifIndex, vlan) ? 1u : 0u);
  }
  ExpectStore(model);
}

TEST_F(StoreTest, TypesOutsideTheTableAreRefused) {
  for (uint32_t type = 0; type < 27; ++type)  // other modules read it
    EXPECT_EQ(g_dhcpVexSetSnpCfg[type].defaultValue, Model::Default(type)) << type;
  for (const uint32_t type : {27u, 28u, 255u, 0xFFFF'FFFFu}) {
    EXPECT_EQ(DhcpVexSaveSnpCfg(1, type, 7), 1u);
    EXPECT_EQ(DhcpVexSetV4SnpInfoByType(&g_dhcpSnpGblInfo, type, 1), 1u);
    EXPECT_EQ(DhcpVexSetSnpInfoByType(&g_dhcpSnpGblInfo, type, 1), 1u);
    DhcpVexSetV6SnpInfoByType(&g_dhcpSnpGblInfo, type, 1);
  }
  EXPECT_EQ(DhcpVexSetSnpInfo(nullptr, 1, 2, 7), 1u);
  EXPECT_EQ(DhcpVexSetSnpInfo(&g_dhcpVexSnpIfInfo, 1, 27, 7), 1u);     // behind the last type
  EXPECT_EQ(DhcpVexSetV4SnpInfoByType(&g_dhcpSnpGblInfo, 12, 1), 1u);  // not an IPv4 type
  EXPECT_EQ(DhcpVexSetSnpInfoByType(&g_dhcpSnpGblInfo, 13, 5000), 0u);
  DhcpVexSetV6SnpInfoByType(&g_dhcpSnpGblInfo, 1, 9);  // not an IPv6 type
  ExpectStore(Model{});
}

TEST_F(StoreTest, RecordsAreAppendedAndStartInTheirDefaults) {
  for (const uint32_t index : {9u, 7u, 8u}) EXPECT_EQ(DhcpVexSaveSnpCfg(99, 9, index), 0u);
  std::vector<uint32_t> order;
  for (DhcpDllNode* node = g_dhcpVexSnpIfInfo.link.next; node != &g_dhcpVexSnpIfInfo.link;
       node = node->next) {
    const auto& record = *reinterpret_cast<DhcpSnpInfo*>(node);
    order.push_back(record.indexId);
    EXPECT_EQ(record.v4Period.periodSec | record.v4Period.pktCnt | record.v4Period.dropCnt, 0u);
    EXPECT_EQ(record.v6Period.periodMilSec | record.v6Period.dropFlag, 0u);
  }
  EXPECT_EQ(order, (std::vector<uint32_t>{9, 7, 8}));
  for (const auto& block : platform::Memory().Live()) {
    EXPECT_EQ(block.tag, "DhcpVexCreatSnpInfo");
    EXPECT_EQ(block.allocator, 129u);
    EXPECT_EQ(block.size, 160u);
  }
}

TEST_F(StoreTest, MemoryThatRunsOut) {
  Faults().FailAlways(Import::OrbMemAllocInner);
  EXPECT_EQ(DhcpVexSaveSnpCfg(200, 3, 7), 1u);   // no record
  EXPECT_EQ(DhcpVexSaveSnpCfg(7, 25, 10), 1u);   // no record
  EXPECT_EQ(DhcpVexSaveSnpCfg(200, 1, 7), 0u);   // the global record needs none
  EXPECT_EQ(DhcpVexSaveSnpCfg(5000, 3, 7), 0u);  // a default needs none
  EXPECT_EQ(DhcpVexSaveSnpCfg(5000, 1, 7), 0u);
  ExpectStore(Model{});
  Faults().FailNth(Import::OrbMemAllocInner, 2);  // the record but not its entry: gone again, and no error
  EXPECT_EQ(DhcpVexSaveSnpCfg(7, 25, 10), 0u);
  ExpectStore(Model{});
  EXPECT_EQ(DhcpVexSaveSnpCfg(7, 25, 10), 0u);
  DhcpDll& list = DhcpVexGetSnpVlanInfoByVlanId(10)->v4Cfg.trustIfList;
  Faults().FailAlways(Import::OrbMemAllocInner);
  EXPECT_EQ(DhcpVexAddSnpVlanTrustIf(&list, 8), 1u);
  EXPECT_EQ(DhcpVexAddSnpVlanTrustIf(&list, 7), 0u);  // listed already
  EXPECT_EQ(list.count, 1u);
  Faults().Reset();
  Faults().FailAlways(Import::memset_s);  // the record starts clean all the same
  DhcpVexSaveSnpCfg(200, 3, 7);
  EXPECT_EQ(DhcpVexGetSnpIfInfoByIfIndex(7)->v6Period.dropFlag, 0);
  EXPECT_EQ(DhcpVexGetSnpIfInfoByIfIndex(7)->v4Cfg.rateEnable, 0);
}

TEST_F(StoreTest, AnElementWithDamagedLinksStaysAndIsReported) {
  for (const uint32_t index : {7u, 8u, 9u}) DhcpVexSaveSnpCfg(200, 3, index);
  DhcpSnpInfo* middle = DhcpVexGetSnpIfInfoByIfIndex(8);
  DhcpDllNode* const next = middle->link.next;
  const LogCapture log(platform::MaskOf(LogOutput::kAssert));
  for (DhcpDllNode* damage : {static_cast<DhcpDllNode*>(nullptr), &middle->link}) {
    next->prev = damage;
    DhcpVexSaveSnpCfg(5000, 3, 8);  // all default now: to be deleted
    EXPECT_EQ(DhcpVexGetSnpIfInfoByIfIndex(8), damage == nullptr ? middle : nullptr);
    EXPECT_EQ(g_dhcpVexSnpIfInfo.count, damage == nullptr ? 3u : 2u);
  }
  EXPECT_EQ(log.Lines().size(), 1u);
  EXPECT_EQ(log.Lines().at(0).tag, "orch/src/dhcp_vex/dhcp_vex_api");
  EXPECT_EQ(g_dhcpVexSnpIfInfo.link.next->next, next);
}

TEST_F(StoreTest, ASettingThatIsNotDefaultKeepsTheRecord) {
  DhcpVexSaveSnpCfg(200, 3, 7);
  DhcpSnpInfo* record = DhcpVexGetSnpIfInfoByIfIndex(7);
  record->v4Period.dropCnt = 12;
  DhcpVexSaveSnpCfg(99, 9, 7);
  DhcpVexSaveSnpCfg(5000, 3, 7);
  EXPECT_EQ(DhcpVexCheckIsDftSnpCfg(record), 0u);
  DhcpVexDelSnpInfo(&g_dhcpVexSnpIfInfo, record);
  EXPECT_EQ(DhcpVexGetSnpIfInfoByIfIndex(7), record);
  EXPECT_EQ(record->v4Period.dropCnt, 12) << "settings leave the counters alone";
  EXPECT_EQ(DhcpVexCheckIsDftSnpCfg(&g_dhcpSnpGblInfo), 1u);
  g_dhcpSnpGblInfo.v6Cfg.trustIfList.count = 1;  // no type fills it, but it counts
  EXPECT_EQ(DhcpVexCheckIsDftSnpCfg(&g_dhcpSnpGblInfo), 0u);
  g_dhcpSnpGblInfo.v6Cfg.trustIfList.count = 0;
  EXPECT_EQ(DhcpVexGetSnpInfo(&g_dhcpVexSnpIfInfo, 7), record);
  EXPECT_EQ(DhcpVexGetSnpInfo(&g_dhcpVexSnpVlanInfo, 7), nullptr);
  EXPECT_EQ(DhcpVexGetSnpInfo(nullptr, 7), nullptr);
}

// An interface's trusted flag lives in the count of a list without elements: a search must not walk it.
TEST_F(StoreTest, TheTrustedFlagIsNotAListOfInterfaces) {
  DhcpVexSaveSnpCfg(3, 24, 7);
  DhcpDll& list = DhcpVexGetSnpIfInfoByIfIndex(7)->v4Cfg.trustIfList;
  EXPECT_EQ(DhcpVexGetSnpVlanTrustIf(&list, 7), nullptr);
  EXPECT_EQ(DhcpVexDelSnpVlanTrustIf(&list, 7), 0u);
  EXPECT_EQ(list.count, 3u);
  EXPECT_EQ(DhcpVexCheckIfSnpTrusted(7, 10), 1u);
  EXPECT_EQ(DhcpVexCheckIfSnpTrusted(8, 10), 0u);
}

// A trusted interface is compared as the whole 64-bit word.
TEST_F(StoreTest, AnEntryWithBitsAbove32IsAnotherInterface) {
  DhcpVexSaveSnpCfg(7, 25, 10);
  DhcpDll& list = DhcpVexGetSnpVlanInfoByVlanId(10)->v4Cfg.trustIfList;
  DhcpTrustIfNode* node = DhcpVexGetSnpVlanTrustIf(&list, 7);
  node->ifIndex |= 1ull << 32;
  EXPECT_EQ(DhcpVexGetSnpVlanTrustIf(&list, 7), nullptr);
  node->ifIndex = 7;
}

TEST_F(StoreTest, InitialisationResetsTheStaticPartsAndAnswersTheLocks) {
  DhcpVexSetSnpGblInfo(200, 1, 0);
  g_dhcpSnpGblInfo.v4Period.dropCnt = 5;
  g_dhcpDegradeInfo.period.dropCnt = 5;
  DhcpVexSetDegradeCfg(0x1'2345);
  EXPECT_EQ(DhcpVexGetDegradeInfo()->degradeRate, 0x1'2345u);
  EXPECT_EQ(DhcpVexGetDegradeInfo()->period.dropCnt, 5);  // a rate leaves the period alone
  EXPECT_EQ(DhcpVexSnpInfoInit(), 0u);
  DhcpVexDegradeInfoInit();
  ExpectStore(Model{});
  EXPECT_EQ(DhcpVexGetSnpGblInfo()->v4Period.dropCnt, 0);
  EXPECT_EQ(DhcpVexGetDegradeInfo()->degradeRate, kNone);
  EXPECT_EQ(DhcpVexGetDegradeInfo()->period.dropCnt, 0);
  Faults().Arm({.import = Import::OrbSpinlockInit, .code = 9});
  EXPECT_EQ(DhcpVexSnpInfoInit(), 9u);
}

}  // namespace
}  // namespace vex::module_test
