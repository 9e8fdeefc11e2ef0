// capture_frames.h - the frames of a recording in captures/, for the codecs.
// In:  the file's name. Out: its frames' bytes in file order. Only what those files hold: little-endian
// enhanced packet blocks; a file that is not there fails the test.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>
#include "test_paths.h"

namespace vex::service_test {

inline std::vector<std::vector<uint8_t>> FramesOf(const std::string& name) {
  std::ifstream file(std::string(VEX_SOURCE_DIR) + "/captures/" + name, std::ios::binary);
  const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
  const auto word = [&bytes](size_t at) {
    uint32_t value = 0;
    std::memcpy(&value, bytes.data() + at, sizeof(value));
    return value;
  };
  std::vector<std::vector<uint8_t>> frames;
  for (size_t at = 0; at + 12 <= bytes.size(); at += word(at + 4)) {
    if (word(at) != 6) continue;
    const auto first = bytes.begin() + static_cast<ptrdiff_t>(at) + 28;
    frames.emplace_back(first, first + word(at + 20));
  }
  EXPECT_FALSE(frames.empty()) << name;
  return frames;
}

}  // namespace vex::service_test
