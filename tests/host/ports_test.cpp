// ports_test.cpp - which port a frame entered, in the three ways of telling.
#include "host/ports.h"

#include <gtest/gtest.h>

#include "tests/host/frame_builder.h"

namespace vex::host {
namespace {

using testing::ArpReply;
using testing::Dhcp4Request;

uint32_t PortOf(PortTable& table, uint32_t interface, const testing::Bytes& bytes) {
  Frame frame;
  frame.interface = interface;
  return table.Assign(frame, ParseFrame(bytes)).index;
}

PortRecord Port(uint32_t index, std::optional<uint32_t> interface, std::vector<MacAddress> macs = {}) {
  PortRecord port;
  port.index = index;
  port.capture_interface = interface;
  port.macs = std::move(macs);
  port.management = true;
  return port;
}

TEST(Ports, ByInterface) {
  PortTable table({Port(40, 2), Port(6, {})}, PortBy::kInterface);
  EXPECT_EQ(PortOf(table, 0, ArpReply()), 1u);
  EXPECT_EQ(PortOf(table, 2, ArpReply()), 40u) << "the port that names the interface";
  EXPECT_EQ(PortOf(table, 5, ArpReply()), 6u) << "index is interface + 1";
  EXPECT_TRUE(table.Find(6)->management) << "with its settings";
  EXPECT_EQ(PortOf(table, 70000, ArpReply()), 70001u);
  EXPECT_FALSE(table.Find(1)->management) << "an unknown port is plain";
  EXPECT_EQ(table.Find(99), nullptr);
}

TEST(Ports, ByMacInOrderOfFirstSight) {
  PortTable table({Port(2, {}, {{2, 0, 0, 0, 0, 50}, {2, 0, 0, 0, 0, 51}}), Port(3, {})}, PortBy::kMac);
  EXPECT_EQ(PortOf(table, 0, ArpReply(7)), 1u);
  EXPECT_EQ(PortOf(table, 0, ArpReply(51)), 2u);
  EXPECT_EQ(PortOf(table, 0, ArpReply(8)), 4u) << "indexes of configured ports are not given to strangers";
  EXPECT_EQ(PortOf(table, 9, Dhcp4Request(7)), 1u);
}

TEST(Ports, ByMacEndsAtItsLimit) {
  PortTable table({}, PortBy::kMac);
  testing::Bytes frame = ArpReply();
  for (uint32_t station = 0; station < PortTable::kMaxLearned + 2; ++station) {
    for (size_t i = 0; i < 4; ++i) frame[6 + i] = static_cast<uint8_t>(station >> 8 * i);
    EXPECT_EQ(PortOf(table, 0, frame), std::min<size_t>(station + 1, PortTable::kMaxLearned));
  }
  EXPECT_EQ(table.macs_beyond_limit(), 2u);
}

TEST(Ports, ByOuterTag) {
  PortTable table({Port(30, 0)}, PortBy::kVlan);
  EXPECT_EQ(PortOf(table, 0, Dhcp4Request(1, {{0x88A8, 0xE000 | 200}, {0x8100, 100}})), 200u);
  EXPECT_EQ(PortOf(table, 7, Dhcp4Request(1, {{0x8100, 30}})), 30u);
  EXPECT_EQ(PortOf(table, 7, Dhcp4Request()), 1u) << "untagged";
}

}  // namespace
}  // namespace vex::host
