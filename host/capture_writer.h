// capture_writer.h - frames into a pcapng file, with nanosecond times and a comment per frame.
// In:  frames with the port they entered. Out: one section, an interface per port, an enhanced packet block
// per frame, readable by tcpdump, Wireshark and CaptureReader. Failures throw InputError naming the file.
// Memory: one buffer of stdio and one number per port.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/capture_time.h"

namespace vex::host {

class CaptureWriter {
 public:
  explicit CaptureWriter(std::string path);  // creates or empties the file
  // interface_name is written when the port is seen for the first time; "" comment: none.
  void Write(std::span<const uint8_t> bytes, uint32_t original_length, const CaptureTime& time, uint32_t port,
             std::string_view interface_name, std::string_view comment);
  void Finish();  // writes what is left; without it a full disk goes unnoticed
  uint64_t frames() const { return frames_; }

 private:
  uint32_t InterfaceOf(uint32_t port, std::string_view name);
  void AddBlock(uint32_t type, const std::vector<uint8_t>& body);
  [[noreturn]] void Fail(const char* what) const;

  std::string path_;
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> file_;
  std::unordered_map<uint32_t, uint32_t> interfaces_;  // by port
  std::vector<uint8_t> body_;
  uint64_t frames_ = 0;
};

}  // namespace vex::host
