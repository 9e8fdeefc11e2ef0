// Egress descriptors, publishing, uploading; the object database and the optional libraries' side of it.
#include "platform/egress.h"

#include <cstring>

#include "platform/channel.h"
#include "platform/faults.h"
#include "platform/objects.h"
#include "tests/platform/platform_fixture.h"

namespace vex::platform {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

class EgressTest : public PlatformTest {
 protected:
  static OrbMbuf* NewPacket() { return MbufPktNewFromData("packet", 6, "src/test", 1); }
};

TEST_F(EgressTest, ADescriptorTellsWhatWasSetAndInWhichOrder) {
  HostEgressDesc desc{};
  EXPECT_TRUE(EgressView::Decode(desc).settings.empty());
  const std::vector<uint8_t> address = CountingBytes(16);
  const HostEgressPruneType prune{.type = 5, .zero = {}};
  EXPECT_EQ(HostSetEgressSvp(&desc, 0xABCD1234), 0u);
  EXPECT_EQ(HostSetEgressNextHop(&desc, address.data()), 0u);
  EXPECT_EQ(HostSetEgressIntfLen(&desc), 0u);
  EXPECT_EQ(HostSetEgressUint32InfoByType(&desc, 9, 1), 0u);
  EXPECT_EQ(HostSetEgressPruneType(&desc, &prune), 0u);
  EXPECT_EQ(HostSetEgressAppendTlv(&desc, 250, address.data()), 0u);
  EXPECT_EQ(HostSetEgressSvp(&desc, 2), 0u);
  const EgressView view = EgressView::Decode(desc);
  EXPECT_EQ(view.ToString(),
            "Svp 2\n"
            "NextHop 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f 10\n"
            "IntfLen\n"
            "Uint32InfoByType type 1 9\n"
            "PruneType type 5 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00\n"
            "AppendTlv type 250 01 02 03 04\n"
            "Svp 2\n");
  EXPECT_EQ(view.Value(EgressSetter::kSvp), 2u);
  EXPECT_EQ(view.Find(EgressSetter::kDstMac), nullptr);
  HostEgressDesc other{};
  EXPECT_FALSE(EgressView::Decode(other) == view);
}

TEST_F(EgressTest, EverySetterKeepsItsOwnValue) {
  using NumberSetter = uint32_t (*)(HostEgressDesc*, uint32_t);
  // clang-format off
#define VEX_CASE(name) {EgressSetter::k##name, HostSetEgress##name}
  const std::pair<EgressSetter, NumberSetter> numbers[] = {
      VEX_CASE(OePriority), VEX_CASE(IntfType), VEX_CASE(SendIfIndex), VEX_CASE(ProtoType), VEX_CASE(BdId),
      VEX_CASE(BsNoLinkEncap), VEX_CASE(BsVlanNum), VEX_CASE(PruneIf), VEX_CASE(BsSpecifyIpat),
      VEX_CASE(VxlanEncodeVlan), VEX_CASE(BsOeSMAC), VEX_CASE(BsOeDMAC), VEX_CASE(Svp), VEX_CASE(TunnelID),
      VEX_CASE(TunnelType), VEX_CASE(VrfIndex), VEX_CASE(SendPhyIfIndex), VEX_CASE(VxlanHubSpkV2),
      VEX_CASE(VxlanVpeerlink)};
#undef VEX_CASE
  // clang-format on
  HostEgressDesc desc{};
  uint32_t value = 0xF0000000;
  for (const auto& [setter, set] : numbers) EXPECT_EQ(set(&desc, ++value), 0u);
  using BytesSetter = uint32_t (*)(HostEgressDesc*, const void*);
  const std::pair<BytesSetter, size_t> bytes[] = {{HostSetEgressVlanBaseInfo, 4},
                                                  {HostSetEgressSrcMac, 6},
                                                  {HostSetEgressDstMac, 6},
                                                  {HostSetEgressDstAddr, 16},
                                                  {HostSetEgressNextHop, 16}};
  const std::vector<uint8_t> source = CountingBytes(32);
  for (size_t i = 0; i < std::size(bytes); ++i) EXPECT_EQ(bytes[i].first(&desc, source.data() + i), 0u);
  const EgressView view = EgressView::Decode(desc);
  ASSERT_THAT(view.settings, SizeIs(std::size(numbers) + std::size(bytes)));
  value = 0xF0000000;
  for (size_t i = 0; i < std::size(numbers); ++i) {
    EXPECT_EQ(view.settings[i].setter, numbers[i].first);
    EXPECT_EQ(view.settings[i].value, ++value) << EgressSetterName(numbers[i].first);
  }
  for (size_t i = 0; i < std::size(bytes); ++i) {
    const auto& setting = view.settings[std::size(numbers) + i];
    EXPECT_THAT(setting.bytes, testing::ElementsAreArray(source.data() + i, bytes[i].second));
  }
}

TEST_F(EgressTest, ATlvIsReadNoFurtherThanItsPacketBuffer) {
  const struct {
    size_t behind;
    uint32_t result;
  } cases[] = {{5, 0}, {4, 0}, {3, 1}, {1, 1}, {0, 1}};
  for (const bool exact : {true, false}) {
    for (const auto& c : cases) {
      const PacketPtr packet = exact ? Packets().NewExact(CountingBytes(252 + c.behind), {})
                                     : Packets().New(CountingBytes(252), {});
      const uint8_t* const value = packet->bufAddr + packet->bufLen - c.behind;
      HostEgressDesc desc{};
      EXPECT_EQ(HostSetEgressAppendTlv(&desc, 250, value), c.result)
          << c.behind << (exact ? " exact" : " pool");
      EXPECT_THAT(EgressView::Decode(desc).Find(EgressSetter::kAppendTlv)->bytes,
                  SizeIs(std::min<size_t>(c.behind, 4)));
    }
  }
  HostEgressDesc desc{};
  EXPECT_NE(HostSetEgressAppendTlv(&desc, 251, "abcd"), 0u) << "a type this library does not know";
  EXPECT_NE(HostSetEgressAppendTlv(&desc, 250, nullptr), 0u);
}

TEST_F(EgressTest, AFullDescriptorRefusesFurtherSettings) {
  HostEgressDesc desc{};
  int stored = 0;
  while (stored < 1000 && HostSetEgressSvp(&desc, 1) == 0) ++stored;
  EXPECT_GE(stored, 28);
  EXPECT_LT(stored, 1000);
  EXPECT_THAT(EgressView::Decode(desc).settings, SizeIs(stored));
}

TEST_F(EgressTest, PublishedAndUploadedPacketsGoToTheQueueOrTheSink) {
  HostEgressDesc desc{};
  HostSetEgressSendIfIndex(&desc, 12);
  EXPECT_EQ(HostEgressPktPubWithSource(NewPacket(), &desc, 105), 0u);
  EXPECT_EQ(HostUploadLdmByHook(NewPacket()), 0u);
  std::vector<PublishedPacket> published = Egress().TakePublished();
  ASSERT_THAT(published, SizeIs(1));
  EXPECT_EQ(published[0].sourceId, 105u);
  EXPECT_EQ(EgressView::Decode(published[0].desc).Value(EgressSetter::kSendIfIndex), 12u);
  EXPECT_EQ(published[0].packet->dataLen, 6u);
  EXPECT_THAT(Egress().TakeUploaded(), SizeIs(1));

  uint32_t answer = 0, seen = 0;
  Egress().SetPublishSink([&](PacketPtr, const HostEgressDesc&, uint32_t sourceId) {
    seen += sourceId;
    return answer;
  });
  Egress().SetUploadSink([&](PacketPtr) { return answer; });
  for (answer = 0; answer < 2; ++answer) {
    EXPECT_EQ(HostEgressPktPubWithSource(NewPacket(), &desc, 105), answer);
    EXPECT_EQ(HostUploadLdmByHook(NewPacket()), answer);
  }
  EXPECT_EQ(seen, 210u);
  const EgressPort::Stats stats = Egress().GetStats();
  EXPECT_EQ(stats.published, 3u);
  EXPECT_EQ(stats.publishFailed, 1u);
  EXPECT_EQ(stats.uploadFailed, 1u);
}

TEST_F(EgressTest, APacketIsTakenOverAlsoWhenPublishingFails) {
  HostEgressDesc desc{};
  Faults().FailAlways(Import::HostEgressPktPubWithSource);
  Faults().FailAlways(Import::HostUploadLdmByHook);
  EXPECT_NE(HostEgressPktPubWithSource(NewPacket(), &desc, 105), 0u);
  EXPECT_NE(HostUploadLdmByHook(NewPacket()), 0u);
  EXPECT_EQ(Packets().Stats().inUse, 0u);
  Faults().DisarmAll();
  OrbMbuf* const freed = NewPacket();
  g_mbufFreeCb(freed, "here", 1);
  EXPECT_NE(HostEgressPktPubWithSource(freed, &desc, 105), 0u);
  ExpectFinding("publish of a packet that is free");
  EXPECT_NE(HostEgressPktPubWithSource(nullptr, &desc, 105), 0u);
}

constexpr uint32_t kInterfaceKind[4] = {0x10004};
constexpr uint32_t kArpKind[4] = {0x10008};

TEST_F(EgressTest, ObjectsAreReadByTheirKeysAndReleasedOnce) {
  Objects().SetInterfaceVlan(7, 100);
  Objects().SetArp(0x0A000001, 7, 33);
  void* handle = nullptr;
  const uint32_t interfaceKey[] = {7}, arpKey[] = {0x0A000001, 7}, unknown[] = {8, 8};
  const uint32_t dirty[4] = {0x10004, 0, 1, 0};
  uint32_t value = 0;
  EXPECT_NE(db_create_if_cfg_obj(2, 0, &handle), 0);
  ASSERT_EQ(db_create_if_cfg_obj(3, 0, &handle), 0);
  EXPECT_NE(db_get_if_cfg_vlan_id(handle, &value), 0) << "before the read";
  EXPECT_NE(db_read_obj(handle, kArpKind, interfaceKey), 0) << "the other kind's descriptor";
  EXPECT_NE(db_read_obj(handle, dirty, interfaceKey), 0) << "the descriptor ends in zeros";
  EXPECT_NE(db_read_obj(handle, kInterfaceKind, unknown), 0);
  EXPECT_EQ(db_read_obj(handle, kInterfaceKind, interfaceKey), 0);
  EXPECT_EQ(db_get_if_cfg_vlan_id(handle, &value), 0);
  EXPECT_EQ(value, 100u);
  EXPECT_NE(VexPlatformArpGetWorkIfIndex(handle, &value), 0) << "no ARP object";
  EXPECT_THAT(Audit(), ElementsAre(HasSubstr("1 interface-configuration object(s) were never released")));
  db_release_if_cfg_object(handle);
  db_release_if_cfg_object(handle);
  ExpectFinding("interface-configuration object that does not exist");

  ASSERT_EQ(VexPlatformArpCreate(3, 0, &handle), 0);
  EXPECT_NE(db_read_obj(handle, kArpKind, unknown), 0);
  EXPECT_EQ(db_read_obj(handle, kArpKind, arpKey), 0);
  EXPECT_EQ(VexPlatformArpGetWorkIfIndex(handle, &value), 0);
  EXPECT_EQ(value, 33u);
  VexPlatformArpRelease(handle);
  Faults().Arm({.import = Import::db_create_arp_obj, .form = FaultForm::kHollow});
  EXPECT_EQ(VexPlatformArpCreate(3, 0, &handle), 0);
  EXPECT_EQ(handle, nullptr);
}

}  // namespace
}  // namespace vex::platform
