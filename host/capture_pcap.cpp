// capture_pcap.cpp - the classic capture format: a file header of 24 bytes, then records of 16 bytes and a
// frame. In:  a window whose first word is one of the four magic numbers. Out: frames. Layout:
// draft-ietf-opsawg-pcap. Integers are in the writer's byte order, which the magic number tells.
#include <fmt/format.h>

#include "host/capture_format.h"

namespace vex::host {
namespace {

constexpr size_t kFileHeader = 24;
constexpr size_t kRecordHeader = 16;
constexpr uint32_t kNanosPerSecond = 1'000'000'000;

class PcapFormat final : public CaptureFormat {
 public:
  explicit PcapFormat(FileWindow& window) : CaptureFormat(window) {}
  ReadStep Next(Frame& frame) override;

 private:
  ReadStep ReadFileHeader();
  bool TakeFrame(uint32_t captured, Frame& frame);

  FileOrder order_;
  bool header_read_ = false;
  uint32_t nanos_per_tick_ = 1000;
  uint32_t link_type_ = 0;
};

ReadStep PcapFormat::ReadFileHeader() {
  const auto header = window_.Peek(kFileHeader);
  if (header.size() < kFileHeader) return Fail(0, "the file ends inside the file header of 24 bytes");
  const uint32_t native = FileOrder(false).U32(header.data());
  order_ = FileOrder(native != kPcapMicro && native != kPcapNano);
  if (order_.U32(header.data()) == kPcapNano) nanos_per_tick_ = 1;
  const uint16_t major = order_.U16(&header[4]), minor = order_.U16(&header[6]);
  if (major != 2 || minor < 3) {
    return Fail(4, fmt::format("pcap version {}.{} is not supported; 2.4 is", major, minor));
  }
  link_type_ = order_.U32(&header[20]) & 0xFFFF;  // above: frame check sequence length and reserved bits
  window_.Skip(kFileHeader);
  header_read_ = true;
  return ReadStep::kFrame;
}

ReadStep PcapFormat::Next(Frame& frame) {
  if (!header_read_ && ReadFileHeader() == ReadStep::kFailed) return ReadStep::kFailed;
  frame_bytes_.Release(window_);
  const auto header = window_.Peek(kRecordHeader);
  if (header.size() < kRecordHeader) return EndOrFail(header.size(), "a packet record's header of 16 bytes");
  const uint64_t offset = window_.offset();
  const uint64_t nanos = uint64_t{order_.U32(&header[4])} * nanos_per_tick_;
  const uint32_t captured = order_.U32(&header[8]);
  // A fraction of a second or more is a writer's fault that still tells one time.
  frame.time.seconds = static_cast<int64_t>(order_.U32(&header[0]) + nanos / kNanosPerSecond);
  frame.time.nanoseconds = static_cast<uint32_t>(nanos % kNanosPerSecond);
  frame.original_length = order_.U32(&header[12]);
  frame.link_type = link_type_;
  frame.interface = 0;
  if (TakeFrame(captured, frame)) return ReadStep::kFrame;
  return Fail(offset, fmt::format("the file ends inside a packet record that promises {} bytes", captured));
}

bool PcapFormat::TakeFrame(uint32_t captured, Frame& frame) {
  const uint64_t length = kRecordHeader + uint64_t{captured};
  if (length > FileWindow::kWindowBytes) {
    return frame_bytes_.FirstPart(window_, kRecordHeader, captured, frame) && window_.Skip(length) == length;
  }
  const auto record = window_.Peek(static_cast<size_t>(length));
  if (record.size() < length) return false;
  frame_bytes_.InPlace(record, kRecordHeader, captured, frame);
  return true;
}

}  // namespace

std::unique_ptr<CaptureFormat> MakePcapFormat(FileWindow& window) {
  return std::make_unique<PcapFormat>(window);
}

}  // namespace vex::host
