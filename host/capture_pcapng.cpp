// capture_pcapng.cpp - the block format: sections of interface descriptions and packets.
// In:  a window at a section header. Out: frames of enhanced, simple and obsolete packet blocks; other blocks
// are passed over, however long they are. Layout: draft-ietf-opsawg-pcapng. A block is type, total length,
// body, total length again; the byte order may change with each section. The first fault ends the file:
// behind a wrong length nothing can be trusted.
#include <fmt/format.h>

#include <algorithm>

#include "host/capture_format.h"
#include "host/capture_timestamp.h"

namespace vex::host {
namespace {

constexpr uint32_t kInterfaceBlock = 1;
constexpr uint32_t kObsoletePacketBlock = 2;
constexpr uint32_t kSimplePacketBlock = 3;
constexpr uint32_t kEnhancedPacketBlock = 6;
constexpr uint32_t kByteOrderMagic = 0x1A2B3C4D;
constexpr size_t kBlockHeader = 8;    // type and total length
constexpr size_t kBlockTrailer = 4;   // total length
constexpr size_t kPacketFields = 20;  // in front of the frame, enhanced and obsolete block alike
constexpr size_t kSimpleFields = 4;
constexpr size_t kMaxInterfaces = 65536;  // per section, so that memory stays bounded
constexpr uint16_t kOptionEnd = 0, kOptionTsResol = 9, kOptionTsOffset = 14;

struct Interface {
  uint16_t link_type = 0;
  uint32_t snap_length = 0;  // 0: none
  TimestampScale scale;
};

struct Block {
  uint64_t offset = 0;  // in the file
  uint32_t type = 0;
  uint32_t length = 0;  // total
  uint32_t body() const { return length - static_cast<uint32_t>(kBlockHeader + kBlockTrailer); }
};

class PcapngFormat final : public CaptureFormat {
 public:
  PcapngFormat(FileWindow& window, CaptureTime previous) : CaptureFormat(window), previous_(previous) {}
  ReadStep Next(Frame& frame) override;

 private:
  enum class Step : uint8_t { kFrame, kNoFrame, kFailed };
  bool ReadHeader(Block& block);
  Step ReadBlock(const Block& block, Frame& frame);
  Step ReadSection(const Block& block);
  Step ReadInterface(const Block& block);
  Step ReadPacket(const Block& block, Frame& frame);
  Step ReadSimplePacket(const Block& block, Frame& frame);
  Step TakeFrame(const Block& block, size_t fields, uint32_t captured, Frame& frame);
  Step Pass(const Block& block);
  bool ReadOptions(std::span<const uint8_t> options, Interface& interface);
  bool TrailerMatches(const Block& block, const uint8_t* trailer);
  template <class... Args>
  Step Bad(const Block& block, fmt::format_string<Args...> what, Args&&... args) {
    Fail(block.offset, fmt::format(what, std::forward<Args>(args)...));
    return Step::kFailed;
  }
  Step Cut(const Block& block) {
    return Bad(block, "the file ends inside a block of type {:#x} that promises {} bytes", block.type,
               block.length);
  }

  FileOrder order_;
  std::vector<Interface> interfaces_;
  CaptureTime previous_;
};

ReadStep PcapngFormat::Next(Frame& frame) {
  frame_bytes_.Release(window_);
  while (true) {
    const auto header = window_.Peek(kBlockHeader);
    if (header.size() < kBlockHeader) return EndOrFail(header.size(), "a block's header of 8 bytes");
    Block block;
    if (!ReadHeader(block)) return ReadStep::kFailed;
    switch (ReadBlock(block, frame)) {
      case Step::kFrame:
        previous_ = frame.time;
        return ReadStep::kFrame;
      case Step::kNoFrame:
        break;
      case Step::kFailed:
        return ReadStep::kFailed;
    }
  }
}

bool PcapngFormat::ReadHeader(Block& block) {
  const auto header = window_.Peek(kBlockHeader + sizeof kByteOrderMagic);
  block.offset = window_.offset();
  block.type = order_.U32(header.data());
  if (block.type == kSectionHeaderBlock) {
    if (header.size() < kBlockHeader + sizeof kByteOrderMagic) return Cut(block) != Step::kFailed;
    const uint32_t magic = FileOrder(false).U32(&header[8]);
    order_ = FileOrder(magic != kByteOrderMagic);
    if (order_.U32(&header[8]) != kByteOrderMagic) {
      return Bad(block, "a section header without the byte-order mark 0x1a2b3c4d") != Step::kFailed;
    }
  }
  block.length = order_.U32(&header[4]);
  if (block.length < kBlockHeader + kBlockTrailer || block.length % 4 != 0) {
    return Bad(block, "a block of type {:#x} with the length {}; it must be 12 or more and a multiple of 4",
               block.type, block.length) != Step::kFailed;
  }
  return true;
}

PcapngFormat::Step PcapngFormat::ReadBlock(const Block& block, Frame& frame) {
  switch (block.type) {
    case kEnhancedPacketBlock:
    case kObsoletePacketBlock:
      return ReadPacket(block, frame);
    case kSimplePacketBlock:
      return ReadSimplePacket(block, frame);
    case kInterfaceBlock:
      return ReadInterface(block);
    case kSectionHeaderBlock:
      return ReadSection(block);
    default:
      return Pass(block);
  }
}

bool PcapngFormat::TrailerMatches(const Block& block, const uint8_t* trailer) {
  const uint32_t length = order_.U32(trailer);
  if (length == block.length) return true;
  Bad(block, "a block of type {:#x} gives its length as {} in front and as {} behind", block.type,
      block.length, length);
  return false;
}

PcapngFormat::Step PcapngFormat::Pass(const Block& block) {
  const uint64_t front = block.length - kBlockTrailer;
  if (window_.Skip(front) != front) return Cut(block);
  const auto trailer = window_.Peek(kBlockTrailer);
  if (trailer.size() < kBlockTrailer) return Cut(block);
  if (!TrailerMatches(block, trailer.data())) return Step::kFailed;
  window_.Skip(kBlockTrailer);
  return Step::kNoFrame;
}

PcapngFormat::Step PcapngFormat::ReadSection(const Block& block) {
  constexpr size_t kFields = 16;  // byte-order mark, version, section length
  if (block.body() < kFields) return Bad(block, "a section header of {} bytes; it needs 28", block.length);
  const auto bytes = window_.Peek(kBlockHeader + kFields);
  if (bytes.size() < kBlockHeader + kFields) return Cut(block);
  const uint16_t major = order_.U16(&bytes[12]), minor = order_.U16(&bytes[14]);
  if (major != 1) return Bad(block, "pcapng version {}.{} is not supported; 1.0 is", major, minor);
  interfaces_.clear();
  return Pass(block);
}

PcapngFormat::Step PcapngFormat::ReadInterface(const Block& block) {
  constexpr size_t kFields = 8;  // link type, reserved, snap length
  if (block.body() < kFields)
    return Bad(block, "an interface description of {} bytes; it needs 20", block.length);
  if (block.length > FileWindow::kWindowBytes) {
    return Bad(block, "an interface description of {} bytes; {} are the limit", block.length,
               FileWindow::kWindowBytes);
  }
  if (interfaces_.size() == kMaxInterfaces)
    return Bad(block, "more than {} interfaces in a section", kMaxInterfaces);
  const auto bytes = window_.Peek(block.length);
  if (bytes.size() < block.length) return Cut(block);
  Interface interface;
  interface.link_type = order_.U16(&bytes[8]);
  interface.snap_length = order_.U32(&bytes[12]);
  if (!ReadOptions(bytes.subspan(kBlockHeader + kFields, block.body() - kFields), interface)) {
    return Bad(block, "an option of an interface description does not lie inside its block");
  }
  interfaces_.push_back(interface);
  return Pass(block);
}

bool PcapngFormat::ReadOptions(std::span<const uint8_t> options, Interface& interface) {
  uint8_t resolution = 6;  // microseconds unless the option says otherwise
  int64_t offset = 0;
  while (options.size() >= 4) {
    const uint16_t code = order_.U16(&options[0]), length = order_.U16(&options[2]);
    if (code == kOptionEnd) break;
    const size_t padded = (length + size_t{3}) & ~size_t{3};
    if (padded > options.size() - 4) return false;
    if (code == kOptionTsResol && length >= 1) resolution = options[4];
    if (code == kOptionTsOffset && length >= 8) offset = static_cast<int64_t>(order_.U64(&options[4]));
    options = options.subspan(4 + padded);
  }
  interface.scale = TimestampScale(resolution, offset);
  return true;
}

PcapngFormat::Step PcapngFormat::ReadPacket(const Block& block, Frame& frame) {
  if (block.body() < kPacketFields)
    return Bad(block, "a packet block of {} bytes; it needs 32", block.length);
  const auto bytes = window_.Peek(kBlockHeader + kPacketFields);
  if (bytes.size() < kBlockHeader + kPacketFields) return Cut(block);
  const bool enhanced = block.type == kEnhancedPacketBlock;
  const uint32_t id = enhanced ? order_.U32(&bytes[8]) : order_.U16(&bytes[8]);
  if (id >= interfaces_.size()) {
    return Bad(block, "a packet of interface {}, but the section describes {}", id, interfaces_.size());
  }
  const Interface& interface = interfaces_[id];
  const uint64_t ticks = uint64_t{order_.U32(&bytes[12])} << 32 | order_.U32(&bytes[16]);
  frame.time = interface.scale.TimeOf(ticks);
  frame.original_length = order_.U32(&bytes[24]);
  frame.link_type = interface.link_type;
  frame.interface = id;
  return TakeFrame(block, kPacketFields, order_.U32(&bytes[20]), frame);
}

PcapngFormat::Step PcapngFormat::ReadSimplePacket(const Block& block, Frame& frame) {
  if (block.body() < kSimpleFields)
    return Bad(block, "a simple packet block of {} bytes; it needs 16", block.length);
  if (interfaces_.empty()) return Bad(block, "a simple packet, but the section describes no interface");
  const auto bytes = window_.Peek(kBlockHeader + kSimpleFields);
  if (bytes.size() < kBlockHeader + kSimpleFields) return Cut(block);
  const Interface& interface = interfaces_.front();
  const uint32_t room = block.body() - static_cast<uint32_t>(kSimpleFields);
  frame.time = previous_;
  frame.original_length = order_.U32(&bytes[8]);
  frame.link_type = interface.link_type;
  frame.interface = 0;
  uint32_t captured = std::min(frame.original_length, room);  // the block does not say how much was captured
  if (interface.snap_length != 0) captured = std::min(captured, interface.snap_length);
  return TakeFrame(block, kSimpleFields, captured, frame);
}

PcapngFormat::Step PcapngFormat::TakeFrame(const Block& block, size_t fields, uint32_t captured,
                                           Frame& frame) {
  const uint64_t room = block.body() - fields;
  if (captured > room) {
    return Bad(block, "a packet of {} captured bytes in a block with room for {}", captured, room);
  }
  if (block.length > FileWindow::kWindowBytes) {
    if (!frame_bytes_.FirstPart(window_, kBlockHeader + fields, captured, frame)) return Cut(block);
    return Pass(block) == Step::kFailed ? Step::kFailed : Step::kFrame;
  }
  const auto bytes = window_.Peek(block.length);
  if (bytes.size() < block.length) return Cut(block);
  if (!TrailerMatches(block, &bytes[block.length - kBlockTrailer])) return Step::kFailed;
  frame_bytes_.InPlace(bytes, kBlockHeader + fields, captured, frame);
  return Step::kFrame;
}

}  // namespace

std::unique_ptr<CaptureFormat> MakePcapngFormat(FileWindow& window, CaptureTime previous) {
  return std::make_unique<PcapngFormat>(window, previous);
}

}  // namespace vex::host
