// options.h - what the command line asked for, one record per subcommand.
// In:  host/cli.h parses argv into these. Out: read by the subcommands; nothing here has behaviour.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/config.h"
#include "host/ports.h"

namespace vex::host {

// What every subcommand that runs the module takes.
struct ModuleOptions {
  std::string module_path;  // libvex_dhcp.so; found next to the program when not given
  std::string config_path;  // "" : defaults
  ConfigOverrides overrides;
};

struct ReplayCommand {
  ModuleOptions module;
  PortBy port_by = PortBy::kInterface;
  std::string filter;  // libpcap filter expression, "" : every frame
  std::vector<std::string> files;
  bool json = false;
  bool quiet = false;         // no report, no progress: exit code and errors only
  std::string write_refused;  // pcapng file for the refused frames, "": none
  std::string against;        // second configuration file, "": none
};

struct RunCommand {
  ModuleOptions module;
  std::vector<std::string> ports;         // "INTERFACE[:OPTION,...]", see host/live/port_spec.h
  std::string bindings, socket, metrics;  // "": as the file says
  uint32_t threads = 0;                   // 0: as the file says
};

struct CtlCommand {
  std::string socket;
  std::vector<std::string> words;  // "show ports", "set KEY VALUE", ...
  bool json = false;
  double watch_seconds = 0;  // 0: once
};

struct ExplainCommand {
  ModuleOptions module;
  PortBy port_by = PortBy::kInterface;
  std::string file;
  uint64_t frame = 1;
  int depth = 2;  // 1 one line, 2 the story, 3 everything with the module's own trace
  bool json = false;
};

}  // namespace vex::host
