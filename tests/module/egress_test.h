// egress_test.h - messages of the DHCP service and the module that drains them.
// In:  the fields of an egress header that a test varies, by their offsets. Out: packets in heap blocks of
// exactly their size, queued on the return channel; what became of them, told by their cookies.
#pragma once

#include <dlfcn.h>

#include <cstring>

#include "dhcp_vex_api_event.h"
#include "dhcp_vex_pkt_diag.h"
#include "dhcp_vex_pkt_return.h"
#include "platform/channel_events.h"
#include "platform/egress.h"
#include "platform/objects.h"
#include "tests/module/module_test.h"

namespace vex::module_test {

inline constexpr uint16_t kBind = 32, kNd = 33,
                          kEthernet = 6;  // message kinds; the last is a packet's interface type
inline constexpr uint16_t kHeader = 256;  // a header as the service writes it: 252 bytes and the TLV value

// One message: a header, then what it carries. Every change answers a changed copy.
struct Message {
  Bytes bytes;
  platform::PacketAttributes attr;

  Message Put(size_t at, size_t width, uint64_t value) const {  // host byte order
    Message message = *this;
    if (message.bytes.size() < at + width) message.bytes.resize(at + width);
    std::memcpy(message.bytes.data() + at, &value, width);
    return message;
  }
  Message Length(uint16_t intfLen) const { return Put(2, 2, intfLen); }
  Message Vpls(uint32_t tunnelId, uint8_t tunnelType, uint16_t flag = 1) const {
    return Put(244, 2, flag).Put(108, 4, tunnelId).Put(73, 1, tunnelType);
  }
  Message EgressFlags(uint32_t flags) const { return Put(104, 4, flags); }
  Message Cut(size_t size) const {
    Message message = *this;
    message.bytes.resize(size);
    return message;
  }
  Message Cookie(uint64_t cookie) const {
    Message message = *this;
    message.attr.cookie = cookie;
    return message;
  }
  Message ByMlag() const {
    Message message = *this;
    message.attr.appPktType = 0x101;  // 8 bits count
    return message;
  }
  Message Marked(uint32_t diagSwitch = 1) const {
    Message message = *this;
    message.attr.diagSwitch = diagSwitch;
    return message;
  }
  PacketPtr New() const { return platform::Packets().NewExact(bytes, attr); }
};

inline Message Make(uint16_t kind, const Bytes& body = {0xB0, 0xB1, 0xB2, 0xB3}, uint16_t header = kHeader) {
  Message message;
  message.bytes = Join({Bytes(header, 0), body});
  return message.Put(0, 2, kind).Put(2, 2, header);
}

class EgressTest : public ModuleTest {
 protected:
  // Optional libraries are opened by their full path first; the module's own request then finds them by name.
  explicit EgressTest(std::vector<std::string> libraries = {}) {
    for (const std::string& path : libraries) {
      EXPECT_NE(dlopen(path.c_str(), RTLD_LAZY), nullptr) << dlerror();
    }
  }

  void SetUp() override {
    ModuleTest::SetUp();
    channel_ = platform::Channels().Find("channel/dhcp2vex");
    ASSERT_NE(channel_, nullptr);
  }

  void TearDown() override {
    channel_->Drain();
    platform::Egress().TakePublished();
    platform::Egress().TakeUploaded();
    EXPECT_EQ(g_dhcpPktLogVexBarrier, 0u);
    EXPECT_EQ(g_dhcpVexSnpInfoUseLock.word, 0u);
    ModuleTest::TearDown();
  }

  void Send(const Message& message) {
    PacketPtr packet = message.New();
    ASSERT_TRUE(channel_->Send(packet));
  }

  // Drains once; answers whether the event asks for another drain, and forgets it.
  bool Drain() {
    platform::Faults().StartCounting();
    const uint64_t before = platform::Faults().Calls(Import::ORB_ChannelEventWritePublic);
    Dhcp2VexChnEvtCallback();
    return platform::Faults().Calls(Import::ORB_ChannelEventWritePublic) != before;
  }

  static std::vector<uint64_t> Published() {
    std::vector<uint64_t> cookies;
    for (const auto& published : platform::Egress().TakePublished())
      cookies.push_back(published.packet->attr.cookie);
    return cookies;
  }
  static std::vector<uint64_t> Uploaded() {
    std::vector<uint64_t> cookies;
    for (const auto& packet : platform::Egress().TakeUploaded()) cookies.push_back(packet->attr.cookie);
    return cookies;
  }

  platform::Channel* channel_ = nullptr;
};

}  // namespace vex::module_test
