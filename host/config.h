// config.h - the configuration of a run: what the TOML file and the command line say.
// In:  a TOML file or text. Out: a checked Config, or InputError with file:line:column, what is wrong, the
//      allowed range and the nearest valid key, on one line.
// Not here: the table of keys and ranges (host/settings.h), the requests to the module (service/configure.h).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/ports.h"
#include "service/settings.h"

namespace vex::host {

// What the platform answers to the module's capability queries.
struct Capabilities {
  uint32_t instances = 4;     // 1 to 4 spread clients over that many; any other value is one instance
  uint32_t causeid_type = 0;  // scheme of the cause ids that mark access-control traffic
  uint32_t no_check_cfg = 0;  // 1: DHCPv4 replies are wanted whatever the switches say
  uint32_t mlag_v4_rate = 0;  // packets per second over the peer-link; 0: no limit
  uint32_t mlag_v6_rate = 0;
  bool operator==(const Capabilities&) const = default;
};

inline constexpr uint32_t kDefaultBoard = 1;
inline constexpr uint32_t kDefaultSwitches = 0x7FFF;  // all but the M-LAG peer-link

// What only the switch on real ports reads: table [live].
struct LiveSettings {
  uint32_t threads = 1;        // receive threads; each serves its share of the ports
  std::string bindings;        // file that keeps the bindings over a restart, "": none does
  std::string socket;          // control socket, "": the program's default
  std::string metrics;         // "ADDRESS:PORT" of the metrics, "": none
  uint32_t station_age = 300;  // seconds until a silent station is forgotten
  uint32_t max_bindings = 65536;
  bool operator==(const LiveSettings&) const = default;
};

struct Config {
  uint32_t board = kDefaultBoard;
  Capabilities capabilities;
  service::Settings module = service::WithSwitches(kDefaultSwitches);
  LiveSettings live;
  std::vector<PortRecord> ports;  // a trusted port is trusted in `module` too
  bool operator==(const Config&) const = default;
};

// Without any file: the defaults above.
Config LoadConfig(const std::string& path);
// `name` stands for the file in errors.
Config ParseConfig(std::string_view toml, const std::string& name);

// One key of [live] by name, from text. Throws InputError.
void SetLive(LiveSettings& live, std::string_view key, std::string_view value);

// Command-line options that override the file.
struct ConfigOverrides {
  std::optional<uint32_t> instances;
  std::optional<uint32_t> causeid_type;
  std::optional<uint32_t> switches;  // the whole bitmap
  bool no_check_cfg = false;         // true: item is 1
};
void ApplyOverrides(const ConfigOverrides& overrides, Config& config);

}  // namespace vex::host
