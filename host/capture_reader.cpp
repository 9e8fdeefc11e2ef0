// capture_reader.cpp - finds out which format a file has and hands out its frames with their numbers.
#include "host/capture_reader.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/capture_format.h"

namespace vex::host {

std::string CaptureError::Message() const {
  return offset == 0 ? fmt::format("{}: {}", file, what) : fmt::format("{}: byte {}: {}", file, offset, what);
}

bool FrameBytes::FirstPart(FileWindow& window, size_t skip, uint64_t length, Frame& frame) {
  const auto part = static_cast<size_t>(std::min<uint64_t>(length, CaptureReader::kFirstPartBytes));
  const auto bytes = window.Peek(skip + part);
  if (bytes.size() < skip + part) return false;
  first_part_.assign(bytes.begin() + static_cast<std::ptrdiff_t>(skip), bytes.end());
  frame.captured_length = length;
  frame.bytes = first_part_;
  return true;
}

ReadStep CaptureFormat::EndOrFail(size_t left, const char* what) {
  if (left == 0 && window_.failure().empty()) return ReadStep::kEnd;
  return Fail(window_.offset(),
              fmt::format("the file ends inside {}: only {} bytes of it are there", what, left));
}

class CaptureReader::Impl {
 public:
  Impl(std::string path, CaptureTime previous)
      : path_(std::move(path)), window_(path_), last_time_(previous) {}

  bool Next(Frame& frame) {
    if (error_ || done_) return false;
    if (!format_ && !Open()) return false;
    const ReadStep step = format_->Next(frame);
    if (step == ReadStep::kFrame) {
      frame.number = ++frames_;
      last_time_ = frame.time;
      return true;
    }
    done_ = true;
    if (step == ReadStep::kFailed) Fail(format_->failure_offset(), format_->failure());
    return false;
  }

  bool Open() {
    if (!window_.failure().empty()) return Fail(0, window_.failure());
    const auto magic = window_.Peek(4);
    if (!window_.failure().empty()) return Fail(0, window_.failure());
    if (magic.empty()) return Fail(0, "the file is empty; a pcap or pcapng capture is needed");
    if (magic.size() == 4) {
      const uint32_t native = FileOrder(false).U32(magic.data()), swapped = FileOrder(true).U32(magic.data());
      if (native == kSectionHeaderBlock) {
        format_ = MakePcapngFormat(window_, last_time_);
      } else if (native == kPcapMicro || native == kPcapNano || swapped == kPcapMicro ||
                 swapped == kPcapNano) {
        format_ = MakePcapFormat(window_);
      }
    }
    if (format_) return true;
    const bool gzip = magic.size() >= 2 && magic[0] == 0x1F && magic[1] == 0x8B;
    return Fail(
        0, gzip ? "gzip-compressed; unpack it first with gunzip"
                : fmt::format("not a pcap or pcapng capture (starts with {:02x})", fmt::join(magic, " ")));
  }

  bool Fail(uint64_t offset, std::string what) {
    error_ = CaptureError{path_, offset, std::move(what)};
    return false;
  }

  std::string path_;
  FileWindow window_;
  CaptureTime last_time_;
  std::unique_ptr<CaptureFormat> format_;
  std::optional<CaptureError> error_;
  uint64_t frames_ = 0;
  bool done_ = false;
};

CaptureReader::CaptureReader(std::string path, CaptureTime previous)
    : impl_(std::make_unique<Impl>(std::move(path), previous)) {}
CaptureReader::~CaptureReader() = default;
CaptureReader::CaptureReader(CaptureReader&&) noexcept = default;
CaptureReader& CaptureReader::operator=(CaptureReader&&) noexcept = default;

bool CaptureReader::Next(Frame& frame) { return impl_->Next(frame); }
const std::optional<CaptureError>& CaptureReader::error() const { return impl_->error_; }
uint64_t CaptureReader::bytes_read() const { return impl_->window_.offset(); }
uint64_t CaptureReader::bytes_total() const { return impl_->window_.size(); }
uint64_t CaptureReader::frames() const { return impl_->frames_; }
CaptureTime CaptureReader::last_time() const { return impl_->last_time_; }

}  // namespace vex::host
