// capture_writer.cpp - pcapng blocks in this machine's byte order (draft-ietf-opsawg-pcapng).
#include "host/capture_writer.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "host/error.h"

namespace vex::host {
namespace {

using Body = std::vector<uint8_t>;

constexpr uint32_t kSectionBlock = 0x0A0D0D0A, kInterfaceBlock = 1, kPacketBlock = 6;
constexpr uint16_t kOptionComment = 1, kOptionName = 2, kOptionTsResol = 9;
constexpr uint16_t kEthernet = 1;
constexpr size_t kMaxText = 1024;
constexpr uint64_t kNanosPerSecond = 1'000'000'000;

template <class T>
void Put(Body& body, T value) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(&value);
  body.insert(body.end(), bytes, bytes + sizeof value);
}

void Pad(Body& body) { body.resize((body.size() + 3) & ~size_t{3}); }

void PutOption(Body& body, uint16_t code, std::string_view value) {
  value = value.substr(0, kMaxText);
  Put(body, code);
  Put(body, static_cast<uint16_t>(value.size()));
  body.insert(body.end(), value.begin(), value.end());
  Pad(body);
}

void EndOptions(Body& body) { Put(body, uint32_t{0}); }

}  // namespace

CaptureWriter::CaptureWriter(std::string path)
    : path_(std::move(path)), file_(std::fopen(path_.c_str(), "wbe"), std::fclose) {
  if (!file_) Fail("cannot create");
  Body body;
  Put(body, uint32_t{0x1A2B3C4D});  // byte-order mark
  Put(body, uint16_t{1});           // version 1.0
  Put(body, uint16_t{0});
  Put(body, UINT64_MAX);  // section length not given
  AddBlock(kSectionBlock, body);
}

void CaptureWriter::Write(std::span<const uint8_t> bytes, uint32_t original_length, const CaptureTime& time,
                          uint32_t port, std::string_view interface_name, std::string_view comment) {
  const uint32_t interface = InterfaceOf(port, interface_name);
  const uint64_t ticks = static_cast<uint64_t>(time.seconds) * kNanosPerSecond + time.nanoseconds;
  body_.clear();
  Put(body_, interface);
  Put(body_, static_cast<uint32_t>(ticks >> 32));
  Put(body_, static_cast<uint32_t>(ticks));
  Put(body_, static_cast<uint32_t>(bytes.size()));
  Put(body_, std::max(original_length, static_cast<uint32_t>(bytes.size())));
  body_.insert(body_.end(), bytes.begin(), bytes.end());
  Pad(body_);
  if (!comment.empty()) {
    PutOption(body_, kOptionComment, comment);
    EndOptions(body_);
  }
  AddBlock(kPacketBlock, body_);
  ++frames_;
}

uint32_t CaptureWriter::InterfaceOf(uint32_t port, std::string_view name) {
  const auto [at, fresh] = interfaces_.try_emplace(port, static_cast<uint32_t>(interfaces_.size()));
  if (!fresh) return at->second;
  Body body;
  Put(body, kEthernet);
  Put(body, uint16_t{0});
  Put(body, uint32_t{0});  // no snap length
  if (!name.empty()) PutOption(body, kOptionName, name);
  PutOption(body, kOptionTsResol, "\x09");  // nanoseconds
  EndOptions(body);
  AddBlock(kInterfaceBlock, body);
  return at->second;
}

void CaptureWriter::AddBlock(uint32_t type, const Body& body) {
  const auto length = static_cast<uint32_t>(body.size() + 12);
  std::FILE* file = file_.get();
  const bool written = std::fwrite(&type, sizeof type, 1, file) == 1 &&
                       std::fwrite(&length, sizeof length, 1, file) == 1 &&
                       (body.empty() || std::fwrite(body.data(), body.size(), 1, file) == 1) &&
                       std::fwrite(&length, sizeof length, 1, file) == 1;
  if (!written) Fail("cannot write");
}

void CaptureWriter::Finish() {
  if (!file_) return;
  if (std::fclose(file_.release()) != 0) Fail("cannot write");
}

void CaptureWriter::Fail(const char* what) const {
  throw InputError(fmt::format("{}: {}: {}", path_, what, std::strerror(errno)));
}

}  // namespace vex::host
