// fuzz_toml.cpp - any text as a configuration file: a checked configuration or one line of error.
// In:  the text in a file that exists only in memory, read as any other. Out: settings within their ranges,
// which the table of settings and the names of [live] can write again; or an abort.
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "fuzz/input.h"
#include "host/config.h"
#include "host/error.h"
#include "host/settings.h"

namespace {

using namespace vex;
using fuzz::Require;

// Each setting lies in its range and can be written back, to one interface and one VLAN where there are many.
void RequireSettings(const host::Config& config) {
  host::Config again = config;
  for (const host::Setting& setting : host::AllSettings()) {
    const uint32_t key = setting.path.find(".N.") == std::string::npos ? 0 : 7;
    const std::vector<uint32_t> values = setting.get(setting, config, key);
    for (const uint32_t value : values)
      Require(value >= setting.min && value <= setting.max, "a setting lies in its range");
    setting.set(setting, again, key, values);
    Require(setting.get(setting, again, key) == values, "a setting can be written back");
  }
}

// What a file says of [live] can be said by name too.
void RequireSameByName(const host::LiveSettings& live) {
  host::LiveSettings named;
  host::SetLive(named, "threads", std::to_string(live.threads));
  host::SetLive(named, "station_age", std::to_string(live.station_age));
  host::SetLive(named, "max_bindings", std::to_string(live.max_bindings));
  host::SetLive(named, "bindings", live.bindings);
  host::SetLive(named, "socket", live.socket);
  host::SetLive(named, "metrics", live.metrics);
  Require(named == live, "[live] is the same by name");
}

// A command line that says what the file says changes nothing.
void RequireSameByCommandLine(const host::Config& config) {
  host::Config again = config;
  host::ApplyOverrides({.instances = config.capabilities.instances,
                        .causeid_type = config.capabilities.causeid_type,
                        .switches = config.module.switches,
                        .no_check_cfg = config.capabilities.no_check_cfg == 1},
                       again);
  Require(again == config, "options that repeat the file change nothing");
}

void RequirePorts(const host::Config& config) {
  for (const host::PortRecord& port : config.ports) {
    Require(port.index != 0 && !port.name.empty(), "a port has an index and a name");
    const auto found = config.module.interfaces.find(port.index);
    const bool trusted = found != config.module.interfaces.end() && found->second.trusted != 0;
    Require(trusted == port.trusted, "a port is trusted where the module trusts it");
  }
}

void Load(const std::string& path) {
  try {
    const host::Config config = host::LoadConfig(path);
    RequireSettings(config);
    RequireSameByName(config.live);
    RequireSameByCommandLine(config);
    RequirePorts(config);
  } catch (const host::InputError& error) {
    const std::string_view what = error.what();
    Require(what.starts_with(path + ":"), "an error names the file");
    Require(what.find('\n') == std::string_view::npos, "an error is one line");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const int fd = memfd_create("config", 0);
  Require(fd >= 0 && write(fd, data, size) == static_cast<ssize_t>(size), "a file in memory");
  Load("/proc/self/fd/" + std::to_string(fd));
  close(fd);
  return 0;
}
