// bytes.h - bounded views of bytes that came from a wire or a file, and bounded writing.
// In:  a span of bytes. Out: big-endian numbers and narrower spans, or nothing where the span ends too early.
// Nothing is copied or owned; no read leaves the span.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace vex::service {

using Bytes = std::span<const uint8_t>;

// The rest of a view from `at` on; empty when `at` lies behind its end.
constexpr Bytes From(Bytes bytes, size_t at) { return at < bytes.size() ? bytes.subspan(at) : Bytes(); }

// The `count` bytes at `at`, or nothing when the view does not hold them all.
constexpr std::optional<Bytes> Part(Bytes bytes, size_t at, size_t count) {
  if (at > bytes.size() || bytes.size() - at < count) return std::nullopt;  // subtract: cannot wrap
  return bytes.subspan(at, count);
}

constexpr std::optional<uint8_t> U8(Bytes bytes, size_t at) {
  if (at >= bytes.size()) return std::nullopt;
  return bytes[at];
}

// Network byte order.
constexpr std::optional<uint16_t> U16(Bytes bytes, size_t at) {
  const std::optional<Bytes> part = Part(bytes, at, 2);
  if (!part) return std::nullopt;
  return static_cast<uint16_t>((*part)[0] << 8 | (*part)[1]);
}

constexpr std::optional<uint32_t> U32(Bytes bytes, size_t at) {
  const std::optional<Bytes> part = Part(bytes, at, 4);
  if (!part) return std::nullopt;
  const Bytes b = *part;
  return uint32_t{b[0]} << 24 | uint32_t{b[1]} << 16 | uint32_t{b[2]} << 8 | uint32_t{b[3]};
}

// Appends in network byte order.
class ByteWriter {
 public:
  ByteWriter& U8(uint8_t value) {
    bytes_.push_back(value);
    return *this;
  }
  ByteWriter& U16(uint16_t value) {
    return U8(static_cast<uint8_t>(value >> 8)).U8(static_cast<uint8_t>(value));
  }
  ByteWriter& U32(uint32_t value) {
    return U16(static_cast<uint16_t>(value >> 16)).U16(static_cast<uint16_t>(value));
  }
  ByteWriter& Add(Bytes bytes) {
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    return *this;
  }
  ByteWriter& Zeros(size_t count) {
    bytes_.resize(bytes_.size() + count);
    return *this;
  }
  void PutU16(size_t at, uint16_t value) {
    bytes_.at(at) = static_cast<uint8_t>(value >> 8);
    bytes_.at(at + 1) = static_cast<uint8_t>(value);
  }
  size_t size() const { return bytes_.size(); }
  Bytes View() const { return bytes_; }
  std::vector<uint8_t> Take() { return std::move(bytes_); }

 private:
  std::vector<uint8_t> bytes_;
};

}  // namespace vex::service
