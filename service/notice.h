// notice.h - what an administrator should read about, as it happens.
// In:  the service's decisions. Out: one value per line of log; text on demand.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>

#include "service/address.h"

namespace vex::service {

struct Notice {
  enum class Kind : uint8_t { kRogueServer, kRaGuard, kWrongPort, kBindingFull, kSendRefused };
  Kind kind{};
  int64_t time_ns = 0;
  uint32_t port = 0;
  uint16_t vlan = 0;
  MacAddress mac{};          // source of the frame
  IpAddress server;          // what the sender says it is; the frame's source address when it says nothing
  std::string detail;        // the message: "DHCPOFFER", "ADVERTISE", ...
  uint32_t suppressed = 0;   // notices of the same kind and port left out since the last one
  std::string Text() const;  // one line without a time
};

using NoticeSink = std::function<void(const Notice&)>;  // called on service threads, several at once

// At most kPerSecond notices per second, kind, IP version and port: a few senders are all named, and a flood
// does not become a flood of log lines. One thread.
class NoticeLimiter {
 public:
  // True: log it, with `suppressed` filled in. False: counted as suppressed.
  bool Admit(Notice& notice);

 private:
  struct State {
    int64_t since_ns;  // when the second began
    uint32_t admitted;
    uint32_t suppressed;
  };
  static constexpr uint32_t kPerSecond = 10;
  static constexpr size_t kMaxStates = 4096;
  std::unordered_map<uint64_t, State> states_;
};

}  // namespace vex::service
