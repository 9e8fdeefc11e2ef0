// notice.cpp - notices as text, and how many of them are worth a line.
// In:  notices. Out: text; the decision to write it.
#include "service/notice.h"

#include <fmt/format.h>

#include <utility>

namespace vex::service {

std::string Notice::Text() const {
  const std::string where = fmt::format("port {}, VLAN {}, MAC {}", port, vlan, ToText(mac));
  std::string text;
  switch (kind) {
    case Kind::kRogueServer:
      text = fmt::format("rogue DHCP server: {}, server {}: {} dropped", where, ToText(server), detail);
      break;
    case Kind::kRaGuard:
      text = fmt::format("router advertisement from an untrusted port: {}, router {}: dropped", where,
                         ToText(server));
      break;
    case Kind::kWrongPort:
      text = fmt::format("{} of a binding that belongs to another port: {}: dropped", detail, where);
      break;
    case Kind::kBindingFull:
      text = fmt::format("no room for another binding: {}: the client is served, but has no binding", where);
      break;
    case Kind::kSendRefused:
      text = fmt::format("the return channel is full: {}: packet lost", where);
      break;
  }
  if (suppressed != 0) text += fmt::format(" ({} more since the last line)", suppressed);
  return text;
}

bool NoticeLimiter::Admit(Notice& notice) {
  constexpr int64_t kSecond = 1'000'000'000;
  const uint64_t key =
      uint64_t{static_cast<uint8_t>(notice.kind)} << 33 | uint64_t{notice.server.v6} << 32 | notice.port;
  if (states_.size() >= kMaxStates && !states_.contains(key)) states_.clear();
  State& state = states_.try_emplace(key, State{notice.time_ns, 0, 0}).first->second;
  const bool recent = notice.time_ns >= state.since_ns && notice.time_ns - state.since_ns < kSecond;
  if (!recent) state = {notice.time_ns, 0, state.suppressed};
  if (state.admitted == kPerSecond) {
    ++state.suppressed;
    return false;
  }
  ++state.admitted;
  notice.suppressed = std::exchange(state.suppressed, 0);
  return true;
}

}  // namespace vex::service
