// egress_header_test.cpp - the egress header's way into the descriptor, and the output rule.
// In:  random headers at any alignment. Out: the recorded setter calls against a table of byte offsets that
// is independent of the module's record, and the bytes that the descriptor kept.
#include <random>

#include "dhcp_vex_pkt_egress.h"
#include "tests/module/egress_test.h"

namespace vex::module_test {
namespace {

using platform::EgressSetter;
using platform::EgressView;

// One setter: a number of `width` bytes at `at`, shifted and masked, or the address of `width` bytes there.
struct Row {
  Import import;
  EgressSetter setter;
  size_t at;
  size_t width;
  uint32_t mask = 0xFFFFFFFF;
  unsigned shift = 0;
  bool address = false;
};
// clang-format off
#define VEX_SETTER(name) Import::HostSetEgress##name, EgressSetter::k##name
constexpr Row kRows[] = {
    {VEX_SETTER(OePriority), 58, 1},              {VEX_SETTER(IntfType), 0, 2},
    {VEX_SETTER(SendIfIndex), 4, 4},              {VEX_SETTER(ProtoType), 59, 1},
    {VEX_SETTER(BdId), 100, 4},                   {VEX_SETTER(BsNoLinkEncap), 52, 2, 1, 10},
    {VEX_SETTER(BsVlanNum), 52, 2, 3, 0},         {VEX_SETTER(VlanBaseInfo), 88, 4, 0, 0, true},
    {VEX_SETTER(PruneIf), 92, 4},                 {VEX_SETTER(BsSpecifyIpat), 104, 4, 1, 4},
    {VEX_SETTER(VxlanEncodeVlan), 104, 4, 1, 11}, {VEX_SETTER(BsOeSMAC), 52, 2, 1, 4},
    {VEX_SETTER(BsOeDMAC), 52, 2, 1, 3},          {VEX_SETTER(SrcMac), 60, 6, 0, 0, true},
    {VEX_SETTER(DstMac), 66, 6, 0, 0, true},      {VEX_SETTER(DstAddr), 20, 16, 0, 0, true},
    {VEX_SETTER(NextHop), 36, 16, 0, 0, true},    {VEX_SETTER(Svp), 230, 2},
    {VEX_SETTER(TunnelID), 108, 4},               {VEX_SETTER(TunnelType), 73, 1},
    {VEX_SETTER(VrfIndex), 16, 4},                {VEX_SETTER(SendPhyIfIndex), 8, 4},
    {VEX_SETTER(IntfLen), 0, 0},                  {VEX_SETTER(VxlanHubSpkV2), 104, 4, 7, 12},
    {VEX_SETTER(VxlanVpeerlink), 104, 4, 1, 9},   {VEX_SETTER(Uint32InfoByType), 248, 4},
};
// clang-format on

uint32_t NumberAt(const uint8_t* header, size_t at, size_t width) {
  uint32_t value = 0;
  for (size_t i = width; i-- > 0;) value = value << 8 | header[at + i];
  return value;
}

// The recorded arguments that a setter must have been called with, the descriptor first.
struct Expected {
  Import import;
  std::vector<uint64_t> args;
};
std::vector<Expected> ExpectedCalls(const uint8_t* header, const HostEgressDesc* desc) {
  const auto addressOf = [](const void* p) { return static_cast<uint64_t>(reinterpret_cast<uintptr_t>(p)); };
  std::vector<Expected> calls;
  for (const Row& row : kRows) {
    Expected call{row.import, {addressOf(desc)}};
    if (row.address) {
      call.args.push_back(addressOf(header + row.at));
    } else if (row.width != 0) {
      call.args.push_back(NumberAt(header, row.at, row.width) >> row.shift & row.mask);
    }
    if (row.import == Import::HostSetEgressUint32InfoByType) call.args.push_back(1);
    calls.push_back(call);
  }
  if ((header[105] & 0x80) != 0 && (header[106] & 7) == 2)  // bits 15 to 18 are 5
    calls.push_back({Import::HostSetEgressPruneType, {addressOf(desc)}});
  calls.push_back({Import::HostSetEgressAppendTlv, {addressOf(desc), 250, addressOf(header + 252)}});
  return calls;
}

void ExpectCalls(const std::vector<platform::Call>& calls, const std::vector<Expected>& expected) {
  ASSERT_EQ(calls.size(), expected.size());
  for (size_t i = 0; i < calls.size(); ++i) {
    EXPECT_EQ(platform::ImportName(calls[i].import), platform::ImportName(expected[i].import))
        << "step " << i + 1;
    for (size_t arg = 0; arg < expected[i].args.size(); ++arg)
      EXPECT_EQ(calls[i].args[arg], expected[i].args[arg])
          << ImportName(calls[i].import) << " argument " << arg;
  }
}

void ExpectContents(const HostEgressDesc& desc, const uint8_t* header) {
  const EgressView view = EgressView::Decode(desc);
  const auto bytesOf = [&view](EgressSetter setter) {
    const auto* setting = view.Find(setter);
    return setting == nullptr ? Bytes{} : setting->bytes;
  };
  for (const Row& row : kRows) {
    if (!row.address) continue;
    EXPECT_EQ(bytesOf(row.setter), Bytes(header + row.at, header + row.at + row.width));
  }
  EXPECT_EQ(bytesOf(EgressSetter::kAppendTlv), Bytes(header + 252, header + 256));
  if (const auto* prune = view.Find(EgressSetter::kPruneType)) {
    EXPECT_EQ(prune->type, 5u);
    EXPECT_EQ(prune->bytes, Bytes(16, 0));
  }
}

class HeaderTest : public EgressTest {};

TEST_F(HeaderTest, SettersAreCalledOnceInOrderWithTheHeadersFields) {
  std::mt19937 random(5);
  Faults().StartRecording();
  size_t pruned = 0;
  for (int round = 0; round < 2000; ++round) {
    Bytes memory(kHeader + 8);
    for (uint8_t& byte : memory) byte = static_cast<uint8_t>(random());
    uint8_t* const header = memory.data() + round % 8;  // any alignment
    if (round % 3 == 0) header[105] |= 0x80, header[106] = static_cast<uint8_t>((header[106] & ~7) | 2);
    HostEgressDesc desc = {}, alone = {};
    EXPECT_EQ(DhcpHostEgressIntfTrans(header, &desc), 0u);
    const auto expected = ExpectedCalls(header, &desc);
    const size_t prunes = expected.size() - std::size(kRows) - 1;
    pruned += prunes;
    ExpectCalls(Faults().TakeRecorded(), expected);
    ExpectContents(desc, header);
    DhcpHostEgressSetPruneType(header, &alone);
    EXPECT_EQ(Faults().TakeRecorded().size(), prunes);
    if (HasFailure()) FAIL() << "round " << round;
  }
  EXPECT_GT(pruned, 600u);
}

TEST_F(HeaderTest, OnlyTheLastSettersResultCounts) {
  const Message message = Make(kEthernet).EgressFlags(0x28000);
  for (const Import import : platform::FallibleImports()) {
    if (!ImportName(import).starts_with("HostSetEgress")) continue;
    Faults().Reset();
    Faults().Arm({.import = import, .code = 42});
    Faults().StartRecording();
    HostEgressDesc desc = {};
    EXPECT_EQ(DhcpHostEgressIntfTrans(message.bytes.data(), &desc),
              import == Import::HostSetEgressAppendTlv ? 42u : 0u)
        << ImportName(import);
    ExpectCalls(Faults().TakeRecorded(), ExpectedCalls(message.bytes.data(), &desc));
  }
}

TEST_F(HeaderTest, OutputPublishesCountsFailuresAndNeverFreesAPublishedPacket) {
  HostEgressDesc desc = {};
  EXPECT_EQ(Dhcp2VexPacketOutput(nullptr, &desc), 0u);
  Faults().StartRecording();
  EXPECT_EQ(Dhcp2VexPacketOutput(Make(kEthernet).New().release(), &desc), 0u);
  Faults().Arm({.import = Import::HostEgressPktPubWithSource, .code = 17});
  EXPECT_EQ(Dhcp2VexPacketOutput(Make(kEthernet).New().release(), &desc), 17u);
  EXPECT_EQ(Moved(), (Stats{0, 0, 1}));
  for (const auto& call : Faults().TakeRecorded()) {
    EXPECT_EQ(call.import, Import::HostEgressPktPubWithSource);
    EXPECT_EQ(call.args[1], reinterpret_cast<uintptr_t>(&desc));
    EXPECT_EQ(call.args[2], 105u);
  }
  EXPECT_EQ(Published().size(), 1u);
}

TEST_F(HeaderTest, OutputByMlagAnswersWhatTheFreeAnswers) {
  HostEgressDesc desc = {};
  EXPECT_EQ(Dhcp2VexPacketOutput(Make(kEthernet).ByMlag().New().release(), &desc), 0u);
  Faults().Arm({.import = Import::MbufFree, .code = 6});
  EXPECT_EQ(Dhcp2VexPacketOutput(Make(kEthernet).ByMlag().New().release(), &desc), 6u);
  EXPECT_EQ(Moved(), Stats{});
}

}  // namespace
}  // namespace vex::module_test
