// configure.h - configuration on its way into the module.
// In:  the settings wanted (and those in force, for a change while running).
// Out: requests of the handlers DhcpCfg, DhcpSnpCfg and DhcpDegradeCfg, sent one at a time.
// Threads: one caller at a time, after DhcpVexInit has returned; the handlers take the module's lock
// themselves.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "service/settings.h"

struct DhcpCfgReq;
struct DhcpSnpCfgReq;
struct DhcpDegradeCfgReq;

namespace vex::platform {
class Module;
}

namespace vex::service {

enum class Handler : uint8_t { kSwitch, kSnooping, kDegrade };

inline constexpr uint32_t kAllSwitches = 16;  // the switch type that replaces the whole bitmap

// One request before it is laid out as its handler's record.
struct Request {
  Handler handler;
  uint32_t type = 0;   // switch or snooping type; unused by the degrade handler
  uint32_t value = 0;  // switch state or bitmap, snooping value, degrade rate
  uint32_t index = 0;  // interface index or VLAN id
  bool operator==(const Request&) const = default;
};

// The requests that lead from one state of the module to another, in the order they are to be sent:
// limits and trust first, the degrade rate, then the switches, so that no packet meets a switch that is on
// while its limit is still missing.
std::vector<Request> RequestsBetween(const Settings& from, const Settings& to);

// The module's handlers, looked up once in the loaded library.
struct Handlers {
  uint32_t (*switches)(const DhcpCfgReq*) = nullptr;
  uint32_t (*snooping)(const DhcpSnpCfgReq*) = nullptr;
  uint32_t (*degrade)(const DhcpDegradeCfgReq*) = nullptr;
};

// Sends the requests in order, up to the first one that a handler refuses. Answers how many were accepted.
size_t Send(const Handlers& handlers, const std::vector<Request>& requests);
// The same through the module's registered service, as the RPC framework dispatches it: one request at a
// time, whoever else configures. Throws platform::ModuleError when the module registered no service.
size_t Send(platform::Module& module, const std::vector<Request>& requests);

// "DhcpSnpCfg type 3 value 200 index 1": for reports and failures.
std::string Describe(const Request& request);

}  // namespace vex::service
