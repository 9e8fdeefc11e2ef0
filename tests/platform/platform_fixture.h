// platform_fixture.h - a clean stand-in before each test, and nothing left behind after it.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <numeric>
#include <vector>

#include "platform/findings.h"
#include "platform/platform.h"

namespace vex::platform {

class PlatformTest : public testing::Test {
 protected:
  void SetUp() override { Reset(); }
  void TearDown() override { EXPECT_THAT(Audit(), testing::IsEmpty()); }

  // What a test provoked on purpose: exactly one finding with these words.
  static void ExpectFinding(const char* words) {
    EXPECT_THAT(TakeFindings(), testing::ElementsAre(testing::HasSubstr(words)));
  }
};

inline std::vector<uint8_t> CountingBytes(size_t length) {
  std::vector<uint8_t> bytes(length);
  std::iota(bytes.begin(), bytes.end(), uint8_t{1});
  return bytes;
}

}  // namespace vex::platform
