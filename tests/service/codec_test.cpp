// codec_test.cpp - the codecs on recorded frames, on hand-made ones, and on every frame cut at every length.
#include <gmock/gmock.h>

#include <memory>

#include "tests/service/capture_frames.h"
#include "tests/service/messages.h"

namespace vex::service_test {
namespace {

using namespace service;
using ::testing::ElementsAre;

// Parses a copy in a heap block of exactly its size, so that the address sanitizer sees any read behind it.
template <class Parse>
auto OnExactCopy(Bytes bytes, Parse parse) {
  const std::unique_ptr<uint8_t[]> block(new uint8_t[bytes.size()]);
  std::copy(bytes.begin(), bytes.end(), block.get());
  return parse(Bytes(block.get(), bytes.size()));
}

Buffer Join(Buffer bytes, const Buffer& more) {
  bytes.insert(bytes.end(), more.begin(), more.end());
  return bytes;
}

std::string DescribeDhcp(const Buffer& bytes) {
  const auto frame = ParseFrame(bytes);
  if (!frame || frame->protocol != kProtocolUdp) return "";
  if (frame->src_port == 67 || frame->dst_port == 67) {
    const auto m = ParseDhcp4(frame->payload);
    return m ? std::string(Name(m->type)) + " " + ToText(m->yiaddr) + " " + ToText(MacFrom(m->chaddr)) +
                   " lease " + std::to_string(m->lease_seconds.value_or(0)) + " server " +
                   ToText(m->server_id.value_or(IpAddress()))
             : "unreadable";
  }
  if (frame->src_port != 547 && frame->dst_port != 547) return "";
  const auto m = ParseDhcp6(frame->payload);
  if (!m) return "unreadable";
  std::string text =
      std::string(m->relayed() ? "relayed " : "") + std::string(Name(m->type)) + " " + ToHex(m->client_duid);
  for (const Dhcp6Lease& lease : m->leases)
    text += " " + std::string(Name(lease.kind)) + " " + ToText(lease.address) + " valid " +
            std::to_string(lease.valid_seconds);
  return text;
}

std::vector<std::string> DhcpOf(const std::string& capture, size_t count) {
  std::vector<std::string> lines;
  for (const Buffer& frame : FramesOf(capture)) {
    std::string line = DescribeDhcp(frame);
    if (!line.empty() && lines.size() < count) lines.push_back(std::move(line));
  }
  return lines;
}

// The expected lines are tcpdump's reading of the same frames.
TEST(Codecs, ReadRecordedExchanges) {
  EXPECT_THAT(DhcpOf("access-ports.pcapng", 4),
              ElementsAre("DHCPDISCOVER 0.0.0.0 02:00:00:00:01:01 lease 0 server 0.0.0.0",
                          "DHCPOFFER 10.80.1.0 02:00:00:00:01:01 lease 3600 server 10.80.0.2",
                          "DHCPREQUEST 0.0.0.0 02:00:00:00:01:01 lease 0 server 10.80.0.2",
                          "DHCPACK 10.80.1.0 02:00:00:00:01:01 lease 3600 server 10.80.0.2"));
  const std::vector<std::string> qinq = DhcpOf("qinq-100-200.pcapng", 8);
  const std::vector<std::string> relayed = DhcpOf("relayed.pcapng", 8);
  ASSERT_EQ(qinq.size(), 8u);
  ASSERT_EQ(relayed.size(), 8u);
  EXPECT_EQ(qinq[3], "DHCPACK 10.80.1.0 02:00:00:00:01:01 lease 3600 server 10.80.0.2");
  EXPECT_EQ(qinq[4], "SOLICIT 0001000132961578020000000101");
  EXPECT_EQ(qinq[6], "REQUEST 0001000132961578020000000101 ia_na 2001:db8:77::1:0 valid 7500");
  EXPECT_EQ(qinq[7], "REPLY 0001000132961578020000000101 ia_na 2001:db8:77::1:0 valid 3600");
  EXPECT_EQ(relayed[5], "relayed ADVERTISE 0001000132961598020000000101 ia_na 2001:db8:77::1:0 valid 3600");
}

TEST(Codecs, NoRecordedDhcpMessageIsUnreadable) {
  for (const char* name : {"access-ports.pcapng", "flood-and-client.pcapng", "qinq-100-200.pcapng",
                           "relayed.pcapng", "rogue-server.pcapng", "vlan-30.pcapng"}) {
    size_t messages = 0;
    for (const Buffer& frame : FramesOf(name)) {
      const std::string line = DescribeDhcp(frame);
      messages += line.empty() ? 0 : 1;
      EXPECT_NE(line, "unreadable") << name;
    }
    EXPECT_GT(messages, 4u) << name;
  }
}

// No message of a cut frame is taken for a whole one, and nothing behind the cut is read.
TEST(Codecs, EveryCutOfAFrameIsRefusedWithoutReadingBehindIt) {
  const Buffer relayed = RelayPayload(12, RelayPayload(12, Dhcp6Payload({.leases = {{"2001:db8::1"}}})));
  std::vector<Buffer> frames = {
      Tagged(Dhcp4Frame({.type = Dhcp4Type::kAck, .yiaddr = "10.0.0.9"}), 30),
      Dhcp6Frame({.type = Dhcp6Type::kReply, .leases = {{"2001:db8::1"}, {"2001:db8:1::", 60, 48}}}),
      BuildFrame({kServerMac, Mac(1), Ip("fe80::1"), Ip("fe80::2"), 547, 547, relayed}),
      NdFrame(136, Mac(1))};
  for (const Buffer& recorded : FramesOf("qinq-100-200.pcapng")) frames.push_back(recorded);
  for (const Buffer& frame : frames) {
    const auto whole = ParseFrame(frame);
    if (!whole) continue;  // ARP
    const size_t end = static_cast<size_t>(whole->payload.data() - frame.data()) + whole->payload.size();
    for (size_t length = 0; length < end; ++length)
      EXPECT_FALSE(OnExactCopy(Bytes(frame).first(length), ParseFrame)) << length << " of " << frame.size();
  }
}

// Payloads cut at every length: whatever is still readable is a prefix of what was there.
TEST(Codecs, EveryCutOfAPayloadYieldsNoMoreThanItHolds) {
  const Buffer dhcp4 = Dhcp4Payload({.type = Dhcp4Type::kAck, .yiaddr = "10.0.0.9", .requested = "10.0.0.9"});
  for (size_t length = 0; length <= dhcp4.size(); ++length) {
    const bool readable =
        OnExactCopy(Bytes(dhcp4).first(length), [](Bytes b) { return ParseDhcp4(b).has_value(); });
    EXPECT_EQ(readable, length >= 236) << length;
  }
  const Buffer dhcp6 =
      Dhcp6Payload({.type = Dhcp6Type::kReply, .leases = {{"2001:db8::1"}, {"2001:db8:1::", 60, 48}}});
  const Buffer relayed = RelayPayload(13, dhcp6);
  for (const Buffer& payload : {dhcp6, relayed}) {
    for (size_t length = 0; length <= payload.size(); ++length) {
      const size_t leases = OnExactCopy(Bytes(payload).first(length), [](Bytes b) {
        const auto message = ParseDhcp6(b);
        return message ? message->leases.size() : 0;
      });
      EXPECT_EQ(leases, length == payload.size()                    ? 2u
                        : length >= 4 + 14 + 44 && payload == dhcp6 ? 1u
                                                                    : 0u)
          << length;
    }
  }
}

TEST(Dhcp4, OptionsAreReadFromWhereTheyMayStand) {
  const auto insert = [](size_t at, const Buffer& bytes) {
    return [=](Buffer& b) { b.insert(b.begin() + static_cast<ptrdiff_t>(at), bytes.begin(), bytes.end()); };
  };
  // Option 52 says that the file field holds options; the lease stands at `at`.
  const auto overloaded = [](ptrdiff_t at) {
    return [=](Buffer& b) {
      b.resize(243);
      b = Join(b, {52, 1, 1, 255});
      const uint8_t option[] = {51, 4, 0, 0, 0, 60, 255};
      std::copy(std::begin(option), std::end(option), b.begin() + at);
    };
  };
  const auto noLease = std::nullopt;
  const struct {
    const char* what;
    std::function<void(Buffer&)> spoil;
    Dhcp4Type type;
    std::optional<uint32_t> lease_seconds;
  } kCases[] = {
      {"as sent", [](Buffer&) {}, Dhcp4Type::kAck, 3600},
      {"pads in front", insert(240, {0, 0, 0}), Dhcp4Type::kAck, 3600},
      {"no cookie", [](Buffer& b) { b[236] = 0; }, Dhcp4Type::kNone, noLease},
      {"an end in front", insert(240, {255}), Dhcp4Type::kNone, noLease},
      {"type of two bytes", [](Buffer& b) { b[241] = 2, b.insert(b.begin() + 242, 0); }, Dhcp4Type::kNone,
       3600},
      {"lease behind the end", [](Buffer& b) { b.erase(b.end() - 3, b.end()); }, Dhcp4Type::kAck, noLease},
      {"lease in the file field", overloaded(108), Dhcp4Type::kAck, 60},
      {"lease in the sname field, not said to hold any", overloaded(44), Dhcp4Type::kAck, noLease},
      {"the first of two leases",
       [](Buffer& b) {
         b.back() = 51, b = Join(b, {4, 0, 0, 0, 1, 255});
       },
       Dhcp4Type::kAck, 3600},
  };
  for (const auto& c : kCases) {
    Buffer payload = Dhcp4Payload({.type = Dhcp4Type::kAck});
    c.spoil(payload);
    const auto message = OnExactCopy(payload, [](Bytes b) {
      const auto m = ParseDhcp4(b);
      return m ? std::optional(std::pair(m->type, m->lease_seconds)) : std::nullopt;
    });
    ASSERT_TRUE(message) << c.what;
    EXPECT_EQ(message->first, c.type) << c.what;
    EXPECT_EQ(message->second, c.lease_seconds) << c.what;
  }
  Buffer long_address = Dhcp4Payload({});
  long_address[2] = 17;
  EXPECT_FALSE(ParseDhcp4(long_address));
}

TEST(Dhcp6, RelaysArePeeledOffUpToTheHopLimit) {
  Buffer payload = Dhcp6Payload({.xid = 0x77});
  for (int relays = 0; relays <= 9; ++relays, payload = RelayPayload(12, payload)) {
    const auto message = ParseDhcp6(payload);
    ASSERT_EQ(message.has_value(), relays <= 8) << relays;
    if (!message) continue;
    EXPECT_EQ(message->xid, 0x77u);
    EXPECT_EQ(message->relayed(), relays > 0);
  }
  Buffer without = RelayPayload(12, {});
  without.resize(34 + 6);  // no Relay Message option
  EXPECT_FALSE(ParseDhcp6(without));
}

TEST(Dhcp6, StatusOfAnAssociationHoldsForItsLeases) {
  const Buffer payload = Dhcp6Payload({.type = Dhcp6Type::kReply, .leases = {{"2001:db8::1", 60, 0, 3}}});
  const auto message = ParseDhcp6(payload);
  ASSERT_TRUE(message);
  ASSERT_EQ(message->leases.size(), 1u);
  EXPECT_EQ(message->leases[0].status, 3);
  EXPECT_EQ(message->status, 0);
}

TEST(Frames, WhatIsNoWholePacketIsRefused) {
  const Buffer v4 = Dhcp4Frame({}), v6 = Dhcp6Frame({});
  const auto spoilt = [](Buffer frame, size_t at, uint8_t value) {
    frame.at(at) = value;
    return frame;
  };
  EXPECT_FALSE(ParseFrame(spoilt(v4, 14, 0x44)));       // header length below 20
  EXPECT_FALSE(ParseFrame(spoilt(v4, 14, 0x65)));       // version 6 behind the ethertype of 4
  EXPECT_FALSE(ParseFrame(spoilt(v4, 20, 0x20)));       // more fragments
  EXPECT_FALSE(ParseFrame(spoilt(v4, 21, 1)));          // fragment offset
  EXPECT_TRUE(ParseFrame(spoilt(v4, 20, 0x40)));        // don't fragment
  EXPECT_FALSE(ParseFrame(spoilt(v4, 16, 0xFF)));       // total length beyond the frame
  EXPECT_FALSE(ParseFrame(spoilt(v4, 14 + 24, 0xFF)));  // UDP length beyond the packet
  EXPECT_FALSE(ParseFrame(spoilt(v6, 18, 0xFF)));       // payload length beyond the frame
  EXPECT_FALSE(ParseFrame(spoilt(v6, 13, 0xDC)));       // another ethertype
  Buffer options = v4;                                  // IPv4 options in front of UDP
  options[14] = 0x46;
  options[17] = static_cast<uint8_t>(options[17] + 4);
  if (options[17] < 4) ++options[16];
  options.insert(options.begin() + 34, 4, 1);
  EXPECT_EQ(ParseFrame(options)->payload.size(), ParseFrame(v4)->payload.size());
}

TEST(Frames, ExtensionHeadersInFrontOfUdpAreSteppedOver) {
  Buffer frame = Dhcp6Frame({});
  const size_t payload = ParseFrame(frame)->payload.size();
  for (int i = 0; i < 9; ++i) {
    const uint8_t next = frame[20];
    frame[20] = 60;  // destination options, eight bytes of padding
    const uint8_t header[] = {next, 0, 1, 4, 0, 0, 0, 0};
    frame.insert(frame.begin() + 54, std::begin(header), std::end(header));
    frame[19] = static_cast<uint8_t>(frame[19] + 8);
    const auto parsed = ParseFrame(frame);
    ASSERT_EQ(parsed.has_value(), i < 8) << i;
    EXPECT_EQ(parsed ? parsed->payload.size() : payload, payload);
  }
}

// The checksums of built frames are those that the recorded senders computed for the same bytes.
TEST(Frames, RebuiltFramesHaveTheRecordedChecksums) {
  size_t compared = 0;
  for (const Buffer& recorded : FramesOf("qinq-100-200.pcapng")) {
    const auto f = ParseFrame(recorded);
    if (!f || f->protocol != kProtocolUdp) continue;
    const Buffer built =
        BuildFrame({f->dst, f->src, f->ip_src, f->ip_dst, f->src_port, f->dst_port, f->payload}, recorded);
    ASSERT_EQ(built.size(), recorded.size());
    const size_t ip = 14 + 4u * f->tags;
    const size_t udp = ip + (f->ip_src.v6 ? 40 : 20);
    EXPECT_TRUE(std::equal(built.begin(), built.begin() + static_cast<ptrdiff_t>(ip), recorded.begin()));
    EXPECT_EQ(*U16(built, udp + 6), *U16(recorded, udp + 6));
    uint32_t sum = 0;
    for (size_t i = 0; !f->ip_src.v6 && i < 20; i += 2) sum += *U16(built, ip + i);
    EXPECT_EQ(sum % 0xFFFF, 0u);
    ++compared;
  }
  EXPECT_GE(compared, 8u);
}

}  // namespace
}  // namespace vex::service_test
