// generate_capture.cpp - writes the capture that the throughput figures are taken on.
// Usage: generate_capture FILE [FRAMES [SECONDS]]
#include <charconv>
#include <cstdio>
#include <cstring>
#include <exception>

#include "bench/traffic.h"

namespace {

bool Parse(const char* text, uint64_t& value) {
  const char* end = text + std::strlen(text);
  const auto result = std::from_chars(text, end, value);
  return result.ec == std::errc() && result.ptr == end && value > 0;
}

}  // namespace

int main(int argc, char** argv) {
  vex::bench::Traffic traffic;
  const bool usable = argc >= 2 && argc <= 4 && (argc < 3 || Parse(argv[2], traffic.frames)) &&
                      (argc < 4 || Parse(argv[3], traffic.seconds));
  if (!usable) {
    std::fputs("usage: generate_capture FILE [FRAMES [SECONDS]], numbers of 1 or more\n", stderr);
    return 2;
  }
  try {
    vex::bench::WriteTraffic(argv[1], traffic);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "generate_capture: %s\n", failure.what());
    return 2;
  }
  return 0;
}
