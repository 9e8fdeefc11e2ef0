// control_request.h - one line of the control socket, as `vexhost ctl` or any other client writes it.
// In:  any bytes. Out: a request whose form is right, or one line that says what is wrong. A pure function.
// A line is a JSON object of text and flag members, at most kMaxRequest bytes:
//   {"command":"show","what":"ports"}             summary ports limits bindings switches channels stats
//   stations
//   {"command":"set","key":"degrade_rate","value":"100"}
//   {"command":"trace","on":"p1"}                 a port's name or a MAC address; {"command":"trace"} ends it
//   {"command":"reload"}  {"command":"save"}
// The answer is one line too: {"ok":true,"data":...} or {"ok":false,"error":"..."}.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>

namespace vex::host::live {

inline constexpr size_t kMaxRequest = 4096;
inline constexpr std::array<std::string_view, 8> kViews = {"summary",  "ports",    "limits", "bindings",
                                                           "switches", "channels", "stats",  "stations"};

struct ShowRequest {
  std::string what;  // one of kViews
};
struct SetRequest {
  std::string key, value;
};
struct TraceRequest {
  std::string on;  // "": off
};
struct ReloadRequest {};
struct SaveRequest {};
struct RequestError {
  std::string what;
};
using Request = std::variant<RequestError, ShowRequest, SetRequest, TraceRequest, ReloadRequest, SaveRequest>;

Request ParseRequest(std::span<const uint8_t> line);

}  // namespace vex::host::live
