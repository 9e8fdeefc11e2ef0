// set_value.cpp - finds the setting and reads the value in its form.
#include "host/live/set_value.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <vector>

#include "host/error.h"
#include "host/settings.h"

namespace vex::host::live {
namespace {

std::optional<uint32_t> ReadFlag(std::string_view text) {
  if (text == "true" || text == "on") return 1;
  if (text == "false" || text == "off") return 0;
  return std::nullopt;
}

// "[7, 8]", "7,8" or "" for none.
std::optional<std::vector<uint32_t>> ReadList(std::string_view text) {
  if (text.starts_with('[') && text.ends_with(']')) text = text.substr(1, text.size() - 2);
  std::vector<uint32_t> numbers;
  while (!text.empty()) {
    const size_t comma = text.find(',');
    std::string_view word = text.substr(0, comma);
    while (word.starts_with(' ')) word.remove_prefix(1);
    while (word.ends_with(' ')) word.remove_suffix(1);
    const auto number = ParseDecimal(word);
    if (!number) return std::nullopt;
    numbers.push_back(*number);
    text = comma == std::string_view::npos ? std::string_view{} : text.substr(comma + 1);
  }
  return numbers;
}

std::optional<std::vector<uint32_t>> ReadValues(const Setting& setting, std::string_view text) {
  if (setting.form == SettingForm::kPorts) return ReadList(text);
  std::optional<uint32_t> value = ParseDecimal(text);
  if (setting.form == SettingForm::kFlag && !value) value = ReadFlag(text);
  if (!value) return std::nullopt;
  return std::vector<uint32_t>{*value};
}

void SetModuleSetting(Config& config, std::string_view key, std::string_view value) {
  const SettingRef ref = ResolveSetting(key);
  const Setting& setting = *ref.setting;
  const auto values = ReadValues(setting, value);
  const auto in_range = [&](uint32_t number) { return number >= setting.min && number <= setting.max; };
  if (!values || !std::ranges::all_of(*values, in_range)) {
    throw InputError(fmt::format("{}: \"{}\" is not {}", key, value, AllowedText(setting)));
  }
  setting.set(setting, config, ref.key, *values);
}

// ---- port.<interface>.<key> ----------------------------------------------------------------------------

struct PortKey {
  std::string_view name;
  uint32_t max;
  void (*set)(PortRecord& port, uint32_t value);
};
constexpr std::array kPortKeys = {
    PortKey{"trusted", 1, [](PortRecord& port, uint32_t value) { port.trusted = value != 0; }},
    PortKey{"management", 1, [](PortRecord& port, uint32_t value) { port.management = value != 0; }},
    PortKey{"peer_link", 1, [](PortRecord& port, uint32_t value) { port.peer_link = value != 0; }},
    PortKey{"vlan", kVlanIdRange.max,
            [](PortRecord& port, uint32_t value) { port.vlan = static_cast<uint16_t>(value); }},
    PortKey{"cause", 65535, [](PortRecord& port, uint32_t value) { port.cause = value; }},
};

void SetPort(Config& config, std::string_view rest, std::string_view value) {
  const size_t dot = rest.rfind('.');  // interface names may hold dots
  const std::string_view name = rest.substr(0, dot);
  const std::string_view word = dot == std::string_view::npos ? std::string_view{} : rest.substr(dot + 1);
  const auto port = std::ranges::find(config.ports, name, &PortRecord::name);
  if (port == config.ports.end()) throw InputError(fmt::format("there is no port \"{}\"", name));
  const auto row = std::ranges::find(kPortKeys, word, &PortKey::name);
  if (row == kPortKeys.end()) {
    std::vector<std::string_view> names;
    for (const PortKey& key : kPortKeys) names.push_back(key.name);
    throw InputError(fmt::format("port.{}.{}: a running port has {}", name, word, fmt::join(names, ", ")));
  }
  auto number = ParseDecimal(value);
  if (!number && row->max == 1) number = ReadFlag(value);
  if (!number || *number > row->max) {
    throw InputError(fmt::format("port.{}.{}: \"{}\" is not {}", name, word, value,
                                 row->max == 1 ? "true or false" : fmt::format("0 to {}", row->max)));
  }
  row->set(*port, *number);
  if (row->name == "trusted") config.module.interfaces[port->index].trusted = *number;
}

}  // namespace

void SetByName(Config& config, std::string_view key, std::string_view value) {
  Config changed = config;
  if (key.starts_with("port.")) {
    SetPort(changed, key.substr(5), value);
  } else if (key.starts_with("live.")) {
    SetLive(changed.live, key.substr(5), value);
  } else {
    SetModuleSetting(changed, key, value);
    for (PortRecord& port : changed.ports) {
      const auto found = changed.module.interfaces.find(port.index);
      port.trusted = found != changed.module.interfaces.end() && found->second.trusted != 0;
    }
  }
  config = std::move(changed);
}

}  // namespace vex::host::live
