// duid_test.cpp - the walk through DHCPv6 options and relay messages to the client's DUID, and its hash key.
// In:  datagrams and DUIDs in heap blocks of exactly their size. Out: what the exports write, or that they
// write nothing.
#include "dhcp_vex_pkt_channel.h"
#include "tests/module/module_test.h"

namespace vex::module_test {
namespace {

// The bytes in a block of exactly their size.
struct Block {
  explicit Block(const Bytes& bytes) : size(bytes.size()), data(new uint8_t[bytes.size()]) {
    std::copy(bytes.begin(), bytes.end(), data.get());
  }
  size_t size;
  std::unique_ptr<uint8_t[]> data;
};

// What an export with two outputs found; "untouched" when it wrote neither.
const Bytes kUntouched = BytesOf("untouched");
template <class Call>
Bytes Found(Call call) {
  uint8_t marker = 0;
  uint8_t* start = &marker;
  uint32_t length = 0xABCD;
  call(&start, &length);
  if (start == &marker && length == 0xABCD) return kUntouched;
  return {start, start + length};
}
Bytes DuidOf(const Bytes& datagram) {
  const Block block(datagram);
  return Found([&](uint8_t** d, uint32_t* n) { DhcpPktGetDUID(block.data.get(), d, n); });
}
Bytes KeyOf(const Bytes& datagram) {
  const Block block(datagram);
  return Found([&](uint8_t** d, uint32_t* n) { Dhcpv6PktGetHashKey(block.data.get(), d, n); });
}

TEST(Duid, KeyByType) {
  for (const int type : {0, 1, 2, 3, 4, 255}) {
    for (size_t length = 0; length <= 40; ++length) {
      SCOPED_TRACE(testing::Message() << "type " << type << ", length " << length);
      Bytes duid = {0, static_cast<uint8_t>(type)};
      for (size_t i = 2; i < length; ++i) duid.push_back(static_cast<uint8_t>(0x10 + i));
      duid.resize(length);
      const auto part = [&](size_t from, size_t to) {
        return to > length ? kUntouched : Bytes(duid.begin() + long(from), duid.begin() + long(to));
      };
      Bytes expected = length == 0 ? kUntouched : duid;
      if (length > 2 && type == 1) expected = part(8, 14);
      if (length > 2 && type == 2) expected = length < 7 ? kUntouched : part(6, length);
      if (length > 2 && type == 3) expected = part(4, 10);
      const Block block(duid);
      EXPECT_EQ(Found([&](uint8_t** k, uint32_t* n) {
                  DhcpGetDistributeHashKeyByDUID(block.data.get(), static_cast<uint32_t>(length), k, n);
                }),
                expected);
      EXPECT_EQ(KeyOf(Udp(546, 547, Solicit(duid))), expected);
      // Also an empty one is found, in a message of more than 8 bytes.
      EXPECT_EQ(DuidOf(Udp(546, 547, Message6(1, Join({Option6(14, {}), Option6(1, duid)})))), duid);
    }
  }
  EXPECT_EQ(Found([](uint8_t** k, uint32_t* n) { DhcpGetDistributeHashKeyByDUID(nullptr, 9, k, n); }),
            kUntouched);
  // The type is 16 bits: 0x0101 is another type, not DUID-LLT.
  const Bytes other = Join({{1, 1}, Bytes(14, 7)});
  EXPECT_EQ(KeyOf(Udp(546, 547, Solicit(other))), other);
}

TEST(Duid, WalkThroughOptionsAndRelays) {
  const Bytes duid = DuidLl(), second = DuidLl(kRouterMac);
  const Bytes id = Option6(1, duid), junk = Option6(8, {0, 0}), empty = Option6(14, {});
  const Bytes twoRelays = Relayed(Relayed(Relayed(Solicit()), 12), 13);
  const struct {
    const char* name;
    Bytes message;
    Bytes duid;
  } cases[] = {
      {"behind others", Message6(3, Join({junk, empty, empty, id, junk})), duid},
      {"the first of two", Message6(1, Join({id, Option6(1, second)})), duid},
      {"code 0x0100 is another option", Message6(1, Join({Option6(0x100, second), id})), duid},
      {"header without data at the end", Message6(1, Join({junk, Option6(1, {})})), {}},
      {"no options", Message6(1, {}), kUntouched},
      {"message of 8 bytes with a client id of no data", Message6(1, Option6(1, {})), kUntouched},
      {"message of 9 bytes", Message6(1, Option6(1, {5})), {5}},
      {"relay with options in front", Relay6(12, Join({junk, id, Option6(9, Solicit(second))})), second},
      {"reply in forward in reply", twoRelays, duid},
      {"client id of the relay is not the client's", Relay6(12, id), kUntouched},
      {"first option of a relay past the end", Relay6(12, {0, 8, 0, 9, 1}), kUntouched},
      {"inner relay without a message is the message",  // its link address bytes are read as options
       Relayed(Join({{12, 0}, {0, 0}, Option6(1, duid), Bytes(34 - 18, 0), junk})), duid},
      {"inner relay too short for options", Relayed({12, 0, 0, 0, 0, 1, 0, 2, 7, 7}), {7, 7}},
      {"empty inner message", Relay6(12, Join({junk, Option6(9, {})})), kUntouched},
      {"relay datagram of 46 bytes", Relay6(12, Option6(9, {})), kUntouched},
      {"relay datagram of 47 bytes", Relay6(12, Join({Option6(9, {}), {1}})), kUntouched},
      // The inner message ends with the datagram and not with the option that carries it.
      {"client id behind the relay message option", Relay6(12, Join({Option6(9, {1, 1, 2, 3}), id})), duid},
      {"client id across the end of the relay message option",
       Relay6(12, Join({Option6(9, Join({{1, 1, 2, 3}, {0, 1, 0, 4}, {1, 2}})), {3, 4}})), Bytes{1, 2, 3, 4}},
  };
  for (const auto& c : cases) {
    const Bytes datagram = Udp(546, 547, c.message);
    EXPECT_EQ(DuidOf(datagram), c.duid) << c.name;
    // What lies behind the datagram's own length is not part of it.
    EXPECT_EQ(DuidOf(Join({datagram, Option6(9, Solicit()), id})), c.duid) << c.name << ", with bytes behind";
  }
}

// Every length of the datagram, its length field telling the truth: nothing is read behind it, and the answer
// is the whole one's or none.
TEST(Duid, CutAtEveryLength) {
  for (const Bytes& message : {Solicit(), Relayed(Relayed(Solicit(Join({{0, 1}, Bytes(18, 3)}))), 13),
                               Relay6(12, Join({Option6(8, {1, 2}), Option6(9, Solicit())}))}) {
    const Bytes whole = Udp(546, 547, message);
    for (size_t length = 8; length <= whole.size(); ++length) {
      Bytes cut = whole;
      cut.resize(length);
      cut[4] = static_cast<uint8_t>(length >> 8), cut[5] = static_cast<uint8_t>(length);
      const Bytes duid = DuidOf(cut);
      EXPECT_EQ(duid, length == whole.size() ? DuidOf(whole) : duid.empty() ? Bytes() : kUntouched) << length;
    }
    Bytes claims = whole;  // a length field below the header's own size
    for (uint8_t length = 0; length < 8; ++length) {
      claims[4] = 0, claims[5] = length;
      EXPECT_EQ(DuidOf(claims), kUntouched);
    }
  }
}

TEST(Duid, InnermostMessageOfAnOption) {
  const Bytes inner = Solicit(), noInner = Relay6(13, Option6(8, {0, 0}));
  const struct {
    const char* name;
    Bytes message;
    size_t at;  // where the innermost message starts
  } cases[] = {
      {"no relay", inner, 0},
      {"two levels", Relayed(Relayed(inner)), 76},
      {"no relay message option", noInner, 0},
      {"no relay message option in the inner relay", Relayed(noInner), 38},
      {"too short for options", {12, 0, 0}, 0},
      {"option past the end", Relay6(12, {0, 9, 0, 3, 1, 2}), 0},
      {"empty inner message", Relay6(12, Option6(9, {})), 38},
      {"one byte", {12}, 0},
      {"nothing", {}, 0},
  };
  for (const auto& c : cases) {
    const Block block(Join({{0, 9, 0, 0}, c.message}));
    uint8_t* const start = block.data.get();
    EXPECT_EQ(DhcpPktGetDhcpv6HeadFromRelayMsgOpt(start, start + block.size), start + 4 + c.at) << c.name;
  }
}

}  // namespace
}  // namespace vex::module_test
