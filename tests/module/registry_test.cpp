// registry_test.cpp - callbacks of other modules for the messages of the DHCP service.
// In:  registrations and removals in every order, damaged and uninitialised lists, exhausted memory.
// Out: who is called with what, which nodes live, what is reported.
#include "tests/module/egress_test.h"

namespace vex::module_test {
namespace {

std::string g_called;  // one letter per call, in their order

uint32_t F(void*, void*) { return g_called += 'f', 11; }
uint32_t G(void*, void*) { return g_called += 'g', 12; }
uint32_t H(void*) { return g_called += 'h', 13; }  // declares one parameter only
DhcpVexEvtCallBack OneParameter(uint32_t (*callback)(void*)) {
  return reinterpret_cast<DhcpVexEvtCallBack>(reinterpret_cast<void*>(callback));
}

class RegistryTest : public EgressTest {
 protected:
  void TearDown() override {
    while (g_dhcpVexEvtCallBacklist.count != 0) {
      const auto* node = reinterpret_cast<DhcpVexEvtNode*>(g_dhcpVexEvtCallBacklist.link.next);
      DhcpVexEventCallBackUnReg(node->eventType, node->callback);
    }
    EgressTest::TearDown();
  }
  // Notifies and answers the result and who was called.
  static std::pair<uint32_t, std::string> Notify(uint32_t type) {
    g_called.clear();
    const uint32_t result = DhcpVexEventCallBackNotify(type, nullptr);
    return {result, g_called};
  }
  using Call = std::pair<uint32_t, std::string>;
};

TEST_F(RegistryTest, AListThatNobodyInitialisedIsEmpty) {
  EXPECT_EQ(g_evtCallBacklistInit, 0u);
  EXPECT_EQ(DhcpVexEventCallBackUnReg(0, F), 0u);
  EXPECT_EQ(Notify(0), (Call{0, ""}));
  EXPECT_EQ(g_dhcpVexEvtCallBacklist.link.next, nullptr);
  DhcpVexEvtCallBackListInit();
  EXPECT_EQ(g_evtCallBacklistInit, 1u);
  EXPECT_EQ(g_dhcpVexEvtCallBacklist.link.next, &g_dhcpVexEvtCallBacklist.link);
  EXPECT_EQ(g_dhcpVexEvtCallBacklist.link.prev, &g_dhcpVexEvtCallBacklist.link);
  EXPECT_EQ(DhcpVexEventCallBackReg(0, F), 0u);
  DhcpVexEvtCallBackListInit();
  EXPECT_EQ(g_dhcpVexEvtCallBacklist.count, 1u) << "initialised once only";
}

TEST_F(RegistryTest, AFlagOtherThan1CountsAsUninitialised) {
  g_evtCallBacklistInit = 2;
  EXPECT_EQ(DhcpVexEventCallBackReg(0, F), 0u);
  EXPECT_EQ(g_evtCallBacklistInit, 1u);
  EXPECT_EQ(g_dhcpVexEvtCallBacklist.count, 1u);
}

TEST_F(RegistryTest, TheEarliestRegistrationOfATypeIsCalledAlone) {
  EXPECT_EQ(DhcpVexEventCallBackReg(0, F), 0u);
  EXPECT_EQ(DhcpVexEventCallBackReg(0, F), 0u);
  EXPECT_EQ(g_dhcpVexEvtCallBacklist.count, 1u) << "a pair is registered once";
  EXPECT_EQ(DhcpVexEventCallBackReg(0, G), 0u);
  EXPECT_EQ(DhcpVexEventCallBackReg(7, OneParameter(H)), 0u);
  EXPECT_EQ(DhcpVexEventCallBackReg(0xFFFFFFFF, F), 0u);
  EXPECT_EQ(Notify(0), (Call{11, "f"}));
  EXPECT_EQ(Notify(7), (Call{13, "h"}));
  EXPECT_EQ(Notify(0xFFFFFFFF), (Call{11, "f"}));
  EXPECT_EQ(Notify(1), (Call{0, ""}));
  DhcpVexEventCallBackUnReg(0, OneParameter(H));  // unknown pair
  DhcpVexEventCallBackUnReg(7, F);
  EXPECT_EQ(g_dhcpVexEvtCallBacklist.count, 4u);
  EXPECT_EQ(DhcpVexEventCallBackUnReg(0, F), 0u);
  EXPECT_EQ(Notify(0), (Call{12, "g"}));
  EXPECT_EQ(DhcpVexEventCallBackReg(0, F), 0u);
  EXPECT_EQ(Notify(0), (Call{12, "g"})) << "appended at the tail";
}

TEST_F(RegistryTest, ANullCallbackIsKeptAndSkipped) {
  EXPECT_EQ(DhcpVexEventCallBackReg(0, nullptr), 0u);
  EXPECT_EQ(Notify(0), (Call{0, ""}));
  EXPECT_EQ(DhcpVexEventCallBackReg(0, G), 0u);
  EXPECT_EQ(Notify(0), (Call{12, "g"}));
  EXPECT_EQ(DhcpVexEventCallBackUnReg(0, nullptr), 0u);
  EXPECT_EQ(g_dhcpVexEvtCallBacklist.count, 1u);
}

// Removing the first, a middle and the last of three leaves a well-formed ring each time.
TEST_F(RegistryTest, NodesLeaveFromAnywhere) {
  for (uint32_t gone = 0; gone < 3; ++gone) {
    for (uint32_t type = 0; type < 3; ++type) DhcpVexEventCallBackReg(type, F);
    DhcpVexEventCallBackUnReg(gone, F);
    std::vector<uint32_t> left;
    const DhcpDllNode* const head = &g_dhcpVexEvtCallBacklist.link;
    for (const DhcpDllNode* n = head->next; n != head; n = n->next) {
      EXPECT_EQ(n->next->prev, n);
      left.push_back(reinterpret_cast<const DhcpVexEvtNode*>(n)->eventType);
    }
    EXPECT_EQ(head->next->prev, head);
    EXPECT_EQ(left, (std::vector<uint32_t>{gone == 0, gone == 2 ? 1u : 2u}));
    EXPECT_EQ(g_dhcpVexEvtCallBacklist.count, 2u);
    EXPECT_EQ(platform::Memory().LiveBlocks(), 2u);
    for (uint32_t type = 0; type < 3; ++type) DhcpVexEventCallBackUnReg(type, F);
  }
}

TEST_F(RegistryTest, ExhaustedMemoryIsReportedAndChangesNothing) {
  DhcpVexEventCallBackReg(0, F);
  const auto block = platform::Memory().Live().at(0);
  EXPECT_EQ(block.tag, "DhcpVexEventCallBackReg");
  EXPECT_EQ(std::pair(block.allocator, size_t(block.size)), std::pair(129u, size_t{32}));
  Faults().FailAlways(Import::OrbMemAllocInner);
  const LogCapture log;
  EXPECT_EQ(DhcpVexEventCallBackReg(0, F), 0u) << "nothing to allocate";
  EXPECT_EQ(DhcpVexEventCallBackReg(0, G), 1u);
  ASSERT_EQ(log.Lines().size(), 1u);
  EXPECT_EQ(log.Lines()[0].tag, "orch/src/dhcp_vex/dhcp_vex_api");
  EXPECT_EQ(g_dhcpVexEvtCallBacklist.count, 1u);
}

// A node whose neighbour does not point back stays linked and alive, and is reported.
TEST_F(RegistryTest, ADamagedNodeIsNotFreed) {
  for (uint32_t type = 0; type < 3; ++type) DhcpVexEventCallBackReg(type, F);
  DhcpDllNode* const first = g_dhcpVexEvtCallBacklist.link.next;
  DhcpDllNode* const middle = first->next;
  DhcpDllNode* const last = middle->next;
  for (DhcpDllNode** const link : {&first->next, &last->prev, &middle->prev}) {
    DhcpDllNode* const right = *link;
    *link = link == &first->next ? last : link == &last->prev ? first : nullptr;
    const bool reachable = link != &first->next;
    LogCapture logs;
    EXPECT_EQ(DhcpVexEventCallBackUnReg(1, F), 0u);
    EXPECT_EQ(logs.Texts(LogOutput::kAssert).size(), reachable ? 1u : 0u);
    EXPECT_EQ(g_dhcpVexEvtCallBacklist.count, 3u);
    EXPECT_EQ(platform::Memory().LiveBlocks(), 3u);
    *link = right;
  }
  last->next = nullptr;  // a walk ends at a null link
  EXPECT_EQ(Notify(9), (Call{0, ""}));
  EXPECT_EQ(Notify(2), (Call{11, "f"}));
  last->next = &g_dhcpVexEvtCallBacklist.link;
}

TEST_F(RegistryTest, ACallbackMayRemoveItself) {
  static uint32_t calls;
  struct Once {
    static uint32_t Call(void*, void*) { return ++calls, DhcpVexEventCallBackUnReg(0, Call), 5; }
  };
  DhcpVexEventCallBackReg(0, Once::Call);
  DhcpVexEventCallBackReg(0, G);
  for (int i = 0; i < 2; ++i) Send(Make(kBind));
  g_called.clear();
  Drain();
  EXPECT_EQ(calls, 1u);
  EXPECT_EQ(g_called, "g");
  EXPECT_EQ(Moved()[1], 2u);
}

}  // namespace
}  // namespace vex::module_test
