// port_spec.cpp - see port_spec.h.
#include "host/live/port_spec.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string>

#include "host/error.h"
#include "host/settings.h"

namespace vex::host::live {
namespace {

constexpr std::array<std::string_view, 6> kOptions = {"trusted", "management", "peer-link",
                                                      "vlan",    "index",      "cause"};

uint32_t Number(std::string_view spec, std::string_view name, std::string_view text, uint32_t min,
                uint32_t max) {
  const auto number = ParseDecimal(text);
  if (number && *number >= min && *number <= max) return *number;
  throw InputError(
      fmt::format("--port {}: {}=\"{}\" is not a whole number {} to {}", spec, name, text, min, max));
}

void SetOption(PortRecord& port, std::string_view spec, std::string_view option) {
  const size_t equals = option.find('=');
  const std::string_view name = option.substr(0, equals);
  const std::string_view text =
      equals == std::string_view::npos ? std::string_view{} : option.substr(equals + 1);
  if (name == "vlan") {
    port.vlan = static_cast<uint16_t>(Number(spec, name, text, kVlanIdRange.min, kVlanIdRange.max));
  } else if (name == "index") {
    port.index = Number(spec, name, text, kPortIndexRange.min, kPortIndexRange.max);
  } else if (name == "cause") {
    port.cause = Number(spec, name, text, 0, 65535);
  } else if (option == "trusted") {
    port.trusted = true;
  } else if (option == "management") {
    port.management = true;
  } else if (option == "peer-link") {
    port.peer_link = true;
  } else {
    throw InputError(fmt::format("--port {}: unknown option \"{}\", the nearest is {}", spec, option,
                                 Nearest(name, kOptions)));
  }
}

uint32_t LowestFreeIndex(const Config& config) {
  uint32_t index = 1;
  while (std::ranges::count(config.ports, index, &PortRecord::index) != 0) ++index;
  return index;
}

}  // namespace

void AddPort(Config& config, std::string_view spec) {
  const size_t colon = spec.find(':');
  const std::string name(spec.substr(0, colon));
  if (name.empty()) throw InputError(fmt::format("--port {}: an interface name stands first", spec));
  auto port = std::ranges::find(config.ports, name, &PortRecord::name);
  if (port == config.ports.end()) {
    config.ports.push_back({});
    port = config.ports.end() - 1;
    port->name = name;
  }
  std::string_view options = colon == std::string_view::npos ? std::string_view{} : spec.substr(colon + 1);
  while (!options.empty()) {
    const size_t comma = options.find(',');
    SetOption(*port, spec, options.substr(0, comma));
    options = comma == std::string_view::npos ? std::string_view{} : options.substr(comma + 1);
  }
  if (port->index == 0) port->index = LowestFreeIndex(config);
  if (port->trusted) config.module.interfaces[port->index].trusted = 1;
}

}  // namespace vex::host::live
