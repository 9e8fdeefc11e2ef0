// capture_reader_test.cpp - both formats in both byte orders, every block, and files that lie.
#include "host/capture_reader.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <map>
#include <thread>

#include "host/capture_writer.h"
#include "host/file_window.h"
#include "tests/host/capture_bytes.h"

namespace vex::host {
namespace {

using testing::Bytes;
using testing::FileBytes;
using testing::TempFile;

struct Seen {
  Bytes bytes;
  CaptureTime time;
  uint32_t interface, link_type, original_length;
  uint64_t number;
};

struct ReadResult {
  std::vector<Seen> frames;
  std::optional<CaptureError> error;
};

ReadResult ReadAll(const std::string& path, CaptureTime previous = {}) {
  CaptureReader reader(path, previous);
  ReadResult result;
  Frame frame;
  while (reader.Next(frame)) {
    const Bytes bytes(frame.bytes.begin(), frame.bytes.end());
    result.frames.push_back(
        {bytes, frame.time, frame.interface, frame.link_type, frame.original_length, frame.number});
  }
  result.error = reader.error();
  EXPECT_FALSE(reader.Next(frame)) << "the end stays the end";
  return result;
}

ReadResult ReadAll(const Bytes& bytes) {
  const TempFile file(bytes);
  return ReadAll(file.path());
}

const Bytes kFrame{1, 2, 3, 4, 5};

class BothOrders : public ::testing::TestWithParam<bool> {};
INSTANTIATE_TEST_SUITE_P(Order, BothOrders, ::testing::Bool(),
                         [](const auto& order) { return order.param ? "BigEndian" : "LittleEndian"; });

TEST_P(BothOrders, PcapTimesInMicroAndNanoseconds) {
  for (const auto& [magic, nanos] : {std::pair{0xA1B2C3D4u, 7000u}, std::pair{0xA1B23C4Du, 7u}}) {
    FileBytes file(GetParam());
    file.PcapHeader(magic).PcapRecord(100, 7, kFrame).PcapRecord(0xFFFFFFFF, 0, {});
    const ReadResult read = ReadAll(file.bytes);
    ASSERT_EQ(read.frames.size(), 2u);
    EXPECT_FALSE(read.error);
    EXPECT_EQ(read.frames[0].bytes, kFrame);
    EXPECT_EQ(read.frames[0].time, (CaptureTime{100, nanos}));
    EXPECT_EQ(read.frames[1].time, (CaptureTime{0xFFFFFFFF, 0})) << "seconds are unsigned";
    EXPECT_EQ(read.frames[1].number, 2u);
  }
}

TEST_P(BothOrders, PcapngBlocksOfEveryKind) {
  FileBytes file(GetParam());
  file.Section().Interface().Interface(113);
  file.Enhanced(1, 2'000'001, kFrame);
  file.Block(0x0BAD, Bytes(40, 9)).Block(5, {});  // unknown, and statistics without a body
  file.Simple(9, {1, 2, 3, 4});
  file.Obsolete(1, 3'000'000, {8});
  const ReadResult read = ReadAll(file.bytes);
  ASSERT_FALSE(read.error) << read.error->Message();
  ASSERT_EQ(read.frames.size(), 3u);
  EXPECT_EQ(read.frames[0].interface, 1u);
  EXPECT_EQ(read.frames[0].link_type, 113u);
  EXPECT_EQ(read.frames[0].time, (CaptureTime{2, 1000}));
  EXPECT_EQ(read.frames[1].interface, 0u);
  EXPECT_EQ(read.frames[1].time, read.frames[0].time) << "a simple block takes the time before it";
  EXPECT_EQ(read.frames[1].bytes, (Bytes{1, 2, 3, 4})) << "the block has no room for nine bytes";
  EXPECT_EQ(read.frames[1].original_length, 9u);
  EXPECT_EQ(read.frames[2].interface, 1u);
  EXPECT_EQ(read.frames[2].time, (CaptureTime{3, 0}));
  EXPECT_EQ(read.frames[2].bytes, Bytes{8});
}

TEST_P(BothOrders, SectionMayChangeTheByteOrderAndStartsItsOwnInterfaces) {
  FileBytes file(GetParam());
  file.Section().Interface().Interface().Enhanced(1, 1, kFrame);
  FileBytes second(!GetParam());
  second.Section().Interface(1, 3).Simple(5, kFrame);
  const ReadResult read = ReadAll(file.Put(second.bytes).bytes);
  ASSERT_EQ(read.frames.size(), 2u);
  EXPECT_EQ(read.frames[1].interface, 0u);
  EXPECT_EQ(read.frames[1].bytes, (Bytes{1, 2, 3})) << "cut at the snap length";
  EXPECT_EQ(read.frames[1].time, read.frames[0].time);

  file.Put(FileBytes(GetParam()).Section().Interface().Enhanced(1, 1, kFrame).bytes);
  const ReadResult foreign = ReadAll(file.bytes);
  EXPECT_EQ(foreign.frames.size(), 2u) << "interface 1 was the first section's";
  ASSERT_TRUE(foreign.error);
}

TEST_P(BothOrders, TimestampOptions) {
  struct Case {
    uint8_t resolution;
    int64_t offset;
    uint64_t ticks;
    CaptureTime time;
  };
  for (const Case& c : {Case{3, 0, 1234, {1, 234'000'000}}, Case{9, 1000, 1'000'000'007, {1001, 7}},
                        Case{0x80 | 20, -5, (7ull << 20) | (1 << 19), {2, 500'000'000}},
                        Case{19, 0, UINT64_MAX, {1, 844'674'407}}, Case{0, 0, UINT64_MAX, {INT64_MAX, 0}},
                        Case{40, 0, UINT64_MAX, {0, 0}}}) {
    FileBytes file(GetParam());
    const Bytes offset = FileBytes(GetParam()).Put(c.offset).bytes;
    const Bytes options = FileBytes(GetParam())
                              .Put(file.Option(2, {'e', 't', 'h', '0', 0}))
                              .Put(file.Option(9, {c.resolution}))
                              .Put(file.Option(14, offset))
                              .Put(uint32_t{0})
                              .bytes;
    const ReadResult read =
        ReadAll(file.Section().Interface(1, 0, options).Enhanced(0, c.ticks, kFrame).bytes);
    ASSERT_EQ(read.frames.size(), 1u);
    EXPECT_EQ(read.frames[0].time, c.time) << int{c.resolution};
  }
}

// Cut behind any byte: the frames that are whole are read, the rest is one error at the record that is not.
// ends: where a record ends, and how many frames lie before.
void CutEverywhere(const Bytes& whole, const std::map<size_t, size_t>& ends) {
  TempFile file(whole);
  for (size_t length = whole.size(); length > 0; --length) {
    std::filesystem::resize_file(file.path(), length);
    const ReadResult read = ReadAll(file.path());
    auto end = ends.upper_bound(length);
    const auto [offset, frames] = end == ends.begin() ? std::pair<const size_t, size_t>{} : *--end;
    EXPECT_EQ(read.frames.size(), frames) << length;
    ASSERT_EQ(read.error.has_value(), offset != length) << length;
    if (read.error) {
      EXPECT_EQ(read.error->offset, offset) << length;
    }
  }
}

TEST_P(BothOrders, PcapCutAtEveryLength) {
  FileBytes file(GetParam());
  std::map<size_t, size_t> ends{{file.PcapHeader().bytes.size(), 0}};
  ends.emplace(file.PcapRecord(1, 2, kFrame).bytes.size(), 1);
  ends.emplace(file.PcapRecord(3, 4, {9}).bytes.size(), 2);
  CutEverywhere(file.bytes, ends);
}

TEST_P(BothOrders, PcapngCutAtEveryLength) {
  FileBytes file(GetParam());
  std::map<size_t, size_t> ends{{file.Section().bytes.size(), 0}};
  ends.emplace(file.Interface().bytes.size(), 0);
  ends.emplace(file.Enhanced(0, 1, kFrame).bytes.size(), 1);
  ends.emplace(file.Block(0x0BAD, Bytes(8, 1)).bytes.size(), 1);
  ends.emplace(file.Simple(5, kFrame).bytes.size(), 2);
  ends.emplace(file.Obsolete(0, 1, kFrame).bytes.size(), 3);
  CutEverywhere(file.bytes, ends);
}

Bytes Spoilt(Bytes bytes, size_t at, uint8_t value) {
  bytes[at] = value;
  return bytes;
}

// Files that are refused: how many frames come before, where, and a word of why.
struct Refusal {
  const char* name;
  Bytes bytes;
  size_t frames;
  uint64_t offset;
  const char* what;
};

void ExpectRefused(const std::vector<Refusal>& refusals) {
  for (const Refusal& refusal : refusals) {
    const ReadResult read = ReadAll(refusal.bytes);
    EXPECT_EQ(read.frames.size(), refusal.frames) << refusal.name;
    ASSERT_TRUE(read.error) << refusal.name;
    EXPECT_EQ(read.error->offset, refusal.offset) << refusal.name;
    EXPECT_NE(read.error->what.find(refusal.what), std::string::npos)
        << refusal.name << ": " << read.error->what;
  }
}

Bytes GoodPcap() { return FileBytes().PcapHeader().PcapRecord(1, 2, kFrame).bytes; }
Bytes OneInterface() { return FileBytes().Section().Interface().bytes; }  // 28 and 20 bytes
Bytes GoodPcapng() { return FileBytes().Put(OneInterface()).Enhanced(0, 1, kFrame).bytes; }
FileBytes Behind(const Bytes& bytes) { return FileBytes().Put(bytes); }

TEST(CaptureReader, LyingLengths) {
  const Bytes good = GoodPcapng();
  ExpectRefused({
      {"record of four gigabytes", Behind(GoodPcap()).Put(uint64_t{0}).Put(UINT32_MAX).Put(UINT32_MAX).bytes,
       1, 45, "4294967295"},
      {"block of length zero", Behind(good).Put(uint64_t{6}).bytes, 1, 88, "length 0"},
      {"block of odd length", Behind(good).Put(uint32_t{6}).Put(uint32_t{13}).bytes, 1, 88, "length 13"},
      {"lengths that differ", Spoilt(good, 84, 44), 0, 48, "44 behind"},
      {"more captured than the block holds", Spoilt(good, 48 + 20, 200), 0, 48, "200 captured"},
      {"option too long", FileBytes().Section().Interface(1, 0, {9, 0, 200, 0}).bytes, 0, 28, "option"},
      {"packet block too small", Behind(OneInterface()).Block(6, Bytes(16, 0)).bytes, 0, 48, "28 bytes"},
      {"interface too small", FileBytes().Section().Block(1, Bytes(4, 0)).bytes, 0, 28, "16 bytes"},
      {"simple block too small", Behind(OneInterface()).Block(3, {}).bytes, 0, 48, "12 bytes"},
  });
}

TEST(CaptureReader, NamesWhatIsWrongAndWhere) {
  const Bytes section = FileBytes().Section().bytes;
  ExpectRefused({
      {"empty", {}, 0, 0, "empty"},
      {"foreign", {'h', 'e', 'l', 'l', 'o', '\n'}, 0, 0, "68 65 6c 6c"},
      {"gzip", {0x1F, 0x8B, 8, 0, 0}, 0, 0, "gunzip"},
      {"pcap of another version", Spoilt(GoodPcap(), 4, 9), 0, 4, "9.4"},
      {"section without its mark", Spoilt(section, 8, 0), 0, 0, "byte-order"},
      {"pcapng of another version", Spoilt(section, 12, 2), 0, 0, "2.0"},
      {"packet of no interface", Spoilt(GoodPcapng(), 48 + 8, 3), 0, 48, "interface 3"},
      {"simple packet of no interface", Behind(section).Simple(1, {1}).bytes, 0, 28, "no interface"},
  });
}

TEST(CaptureReader, UnreadableFilesSayWhy) {
  EXPECT_NE(ReadAll(std::string("/nonexistent/x.pcap")).error->what.find("No such file"), std::string::npos);
  EXPECT_NE(ReadAll(::testing::TempDir()).error->what.find("directory"), std::string::npos);
}

TEST(CaptureReader, GiantFrameGivesItsFirstPartAndTheFileGoesOn) {
  const size_t giant = 3 * FileWindow::kWindowBytes + 1;
  for (const bool pcapng : {false, true}) {
    FileBytes file;
    if (pcapng) {
      file.Section().Interface().Enhanced(0, 1, Bytes(giant, 7)).Enhanced(0, 2, kFrame);
    } else {
      file.PcapHeader().PcapRecord(1, 0, Bytes(giant, 7)).PcapRecord(2, 0, kFrame);
    }
    const TempFile path(file.bytes);
    CaptureReader reader(path.path());
    Frame frame;
    ASSERT_TRUE(reader.Next(frame));
    EXPECT_EQ(frame.captured_length, giant);
    EXPECT_EQ(frame.bytes.size(), CaptureReader::kFirstPartBytes);
    EXPECT_EQ(frame.bytes.back(), 7);
    ASSERT_TRUE(reader.Next(frame));
    EXPECT_EQ(Bytes(frame.bytes.begin(), frame.bytes.end()), kFrame);
    std::filesystem::resize_file(path.path(), file.bytes.size() - 100 - giant / 2);
    CaptureReader cut(path.path());
    EXPECT_FALSE(cut.Next(frame));
    EXPECT_TRUE(cut.error());
  }
}

TEST(CaptureReader, FramesStayWholeWhereTheWindowSlides) {
  FileBytes file;
  file.PcapHeader();
  for (uint32_t i = 0; i < 3000; ++i) file.PcapRecord(i, 0, Bytes(700 + i % 13, static_cast<uint8_t>(i)));
  ASSERT_GT(file.bytes.size(), 2 * FileWindow::kWindowBytes);
  const ReadResult read = ReadAll(file.bytes);
  ASSERT_EQ(read.frames.size(), 3000u);
  for (uint32_t i = 0; i < 3000; ++i) {
    ASSERT_EQ(read.frames[i].bytes, Bytes(700 + i % 13, static_cast<uint8_t>(i)));
    ASSERT_EQ(read.frames[i].time.seconds, i);
  }
}

TEST(CaptureReader, ReadsAPipe) {
  const std::string path = ::testing::TempDir() + "capture_reader_pipe";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  std::thread writer([&path] {
    const Bytes bytes = FileBytes().PcapHeader().PcapRecord(5, 6, kFrame).bytes;
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  });
  const ReadResult read = ReadAll(path);
  writer.join();
  std::filesystem::remove(path);
  ASSERT_EQ(read.frames.size(), 1u);
  EXPECT_FALSE(read.error);
}

TEST(CaptureReader, FirstSimplePacketTakesTheTimeGiven) {
  const TempFile file(FileBytes().Section().Interface().Simple(5, kFrame).bytes);
  EXPECT_EQ(ReadAll(file.path(), {77, 8}).frames.at(0).time, (CaptureTime{77, 8}));
}

TEST(CaptureWriter, WritesWhatTheReaderReads) {
  const TempFile file({});
  CaptureWriter writer(file.path());
  writer.Write(kFrame, 5, {1700000000, 123456789}, 3, "port 3", "interface 3: 10/s used up");
  writer.Write({}, 99, {1700000001, 0}, 8, "", "");
  writer.Write(kFrame, 5, {0, 1}, 3, "port 3", std::string(5000, 'x'));
  writer.Finish();
  const ReadResult read = ReadAll(file.path());
  ASSERT_FALSE(read.error) << read.error->Message();
  ASSERT_EQ(read.frames.size(), 3u);
  EXPECT_EQ(read.frames[0].bytes, kFrame);
  EXPECT_EQ(read.frames[0].time, (CaptureTime{1700000000, 123456789}));
  EXPECT_EQ(read.frames[1].interface, 1u);
  EXPECT_EQ(read.frames[1].original_length, 99u);
  EXPECT_EQ(read.frames[2].interface, 0u);
}

}  // namespace
}  // namespace vex::host
