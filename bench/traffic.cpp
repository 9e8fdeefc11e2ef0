// traffic.cpp - draws frame after frame from a fixed random sequence.
#include "bench/traffic.h"

#include <algorithm>
#include <array>
#include <random>

#include "bench/frames.h"
#include "host/capture_writer.h"

namespace vex::bench {
namespace {

constexpr uint32_t kPorts = 8;
constexpr uint32_t kClients = 1000;
constexpr int64_t kStart = 1'700'000'000;  // seconds since 1970
constexpr std::array<uint16_t, 3> kVlans = {1, 30, 200};
constexpr uint64_t kNanosPerSecond = 1'000'000'000;

// Percent of the traffic, DHCPv4 first.
struct Share {
  uint32_t percent;
  Frame (*make)(uint16_t vlan, uint32_t client);
};
constexpr std::array<Share, 5> kShares = {
    {{30, Dhcp4Frame}, {15, Dhcp6Frame}, {15, ArpReplyFrame}, {10, SolicitationFrame}, {30, TcpFrame}}};

uint32_t Below(std::minstd_rand& random, uint32_t limit) {
  return static_cast<uint32_t>(random() >> 8) % limit;
}

Frame Draw(std::minstd_rand& random, uint16_t vlan, uint32_t client) {
  uint32_t drawn = Below(random, 100);
  for (const Share& share : kShares) {
    if (drawn < share.percent) return share.make(vlan, client);
    drawn -= share.percent;
  }
  return TcpFrame(vlan, client);
}

}  // namespace

void WriteTraffic(const std::string& path, const Traffic& traffic) {
  host::CaptureWriter writer(path);
  std::minstd_rand random;  // the same sequence every time is the point
  const uint64_t step = traffic.seconds * kNanosPerSecond / std::max<uint64_t>(traffic.frames, 1);
  for (uint64_t i = 0; i < traffic.frames; ++i) {
    const uint32_t client = Below(random, kClients);
    const Frame frame = Draw(random, kVlans[client % kVlans.size()], client);
    const uint64_t nanos = i * step;
    writer.Write(frame, static_cast<uint32_t>(frame.size()),
                 {kStart + static_cast<int64_t>(nanos / kNanosPerSecond),
                  static_cast<uint32_t>(nanos % kNanosPerSecond)},
                 client % kPorts, "", "");
  }
  writer.Finish();
}

}  // namespace vex::bench
