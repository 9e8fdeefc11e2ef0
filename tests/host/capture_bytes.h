// capture_bytes.h - capture files written by hand, in either byte order, so that a test can spoil any field.
// In:  fields. Out: bytes, and files of them in the test's own directory.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <type_traits>
#include <vector>

namespace vex::host::testing {

using Bytes = std::vector<uint8_t>;

class FileBytes {
 public:
  explicit FileBytes(bool big_endian = false) : big_(big_endian) {}

  template <class T>
  FileBytes& Put(T value) {
    for (size_t i = 0; i < sizeof value; ++i) {
      const size_t shift = 8 * (big_ ? sizeof value - 1 - i : i);
      bytes.push_back(static_cast<uint8_t>(static_cast<std::make_unsigned_t<T>>(value) >> shift));
    }
    return *this;
  }
  FileBytes& Put(const Bytes& more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
    return *this;
  }

  FileBytes& PcapHeader(uint32_t magic = 0xA1B2C3D4, uint32_t link_type = 1) {
    return Put(magic).Put(uint16_t{2}).Put(uint16_t{4}).Put(uint64_t{0}).Put(uint32_t{65535}).Put(link_type);
  }
  FileBytes& PcapRecord(uint32_t seconds, uint32_t fraction, const Bytes& frame) {
    const auto length = static_cast<uint32_t>(frame.size());
    return Put(seconds).Put(fraction).Put(length).Put(length).Put(frame);
  }

  FileBytes& Block(uint32_t type, Bytes body) {
    body.resize((body.size() + 3) & ~size_t{3});
    const auto length = static_cast<uint32_t>(body.size() + 12);
    return Put(type).Put(length).Put(body).Put(length);
  }
  FileBytes& Section() {
    return Block(
        0x0A0D0D0A,
        FileBytes(big_).Put(uint32_t{0x1A2B3C4D}).Put(uint16_t{1}).Put(uint16_t{0}).Put(UINT64_MAX).bytes);
  }
  FileBytes& Interface(uint16_t link_type = 1, uint32_t snap_length = 0, const Bytes& options = {}) {
    return Block(1, FileBytes(big_).Put(link_type).Put(uint16_t{0}).Put(snap_length).Put(options).bytes);
  }
  Bytes Option(uint16_t code, const Bytes& value) const {
    FileBytes option(big_);
    option.Put(code).Put(static_cast<uint16_t>(value.size())).Put(value);
    option.bytes.resize((option.bytes.size() + 3) & ~size_t{3});
    return option.bytes;
  }
  FileBytes& Enhanced(uint32_t interface, uint64_t ticks, const Bytes& frame) {
    return Packet(6, FileBytes(big_).Put(interface), ticks, frame);
  }
  FileBytes& Obsolete(uint16_t interface, uint64_t ticks, const Bytes& frame) {
    return Packet(2, FileBytes(big_).Put(interface).Put(uint16_t{7}), ticks, frame);  // 7: drops
  }
  FileBytes& Simple(uint32_t original_length, const Bytes& data) {
    return Block(3, FileBytes(big_).Put(original_length).Put(data).bytes);
  }

  Bytes bytes;

 private:
  FileBytes& Packet(uint32_t type, FileBytes head, uint64_t ticks, const Bytes& frame) {
    const auto length = static_cast<uint32_t>(frame.size());
    head.Put(static_cast<uint32_t>(ticks >> 32)).Put(static_cast<uint32_t>(ticks));
    return Block(type, head.Put(length).Put(length).Put(frame).bytes);
  }
  bool big_;
};

// A file in the test's directory, gone with the object.
class TempFile {
 public:
  explicit TempFile(const Bytes& bytes, const std::string& name = "capture") {
    const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string unique = std::string(test->test_suite_name()) + "." + test->name() + "." + name;
    for (char& c : unique) c = c == '/' ? '_' : c;
    path_ = std::filesystem::path(::testing::TempDir()) / unique;
    Write(bytes);
  }
  ~TempFile() { std::filesystem::remove(path_); }
  TempFile(const TempFile&) = delete;
  TempFile& operator=(const TempFile&) = delete;
  void Write(const Bytes& bytes) {
    std::ofstream(path_, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  }
  std::string path() const { return path_.string(); }

 private:
  std::filesystem::path path_;
};

}  // namespace vex::host::testing
