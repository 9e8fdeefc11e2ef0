// settings.h - the one table of everything that can be set: name, form, range, and where it is kept.
// In:  a dotted path ("snooping.interface.3.v4.rate") and numbers. Out: the field of a Config written or
// read. The TOML reader, the control socket and explain use the same table, so a name and a range exist once.
// Ports are records with names and addresses and are read by the TOML reader itself.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/config.h"

namespace vex::host {

// kFlag: true or false, or the number that the module would store. kPorts: a list of port indexes.
enum class SettingForm : uint8_t { kNumber, kFlag, kPorts };

struct Setting {
  std::string path;  // "N" stands for an interface index or a VLAN id
  SettingForm form = SettingForm::kNumber;
  uint32_t min = 0;
  uint32_t max = 0;
  std::string_view meaning;  // unit and special values, for errors and help
  void (*set)(const Setting& self, Config& config, uint32_t key, std::span<const uint32_t> values) = nullptr;
  std::vector<uint32_t> (*get)(const Setting& self, const Config& config, uint32_t key) = nullptr;
  uint32_t detail = 0;  // for set and get: which switch, which field
};

struct KeyRange {
  std::string_view noun;
  uint32_t min, max;
};
inline constexpr KeyRange kPortIndexRange{"a port index", 1, 0xFFFFFFFE};
inline constexpr KeyRange kVlanIdRange{"a VLAN id", 1, 4094};

const std::vector<Setting>& AllSettings();

// The setting of a path as the table spells it, "N" included; null when there is none.
const Setting* FindSetting(std::string_view pattern);

// A path with numbers in it.
struct SettingRef {
  const Setting* setting = nullptr;
  uint32_t key = 0;  // 0: the setting has none
};
// Throws InputError: unknown name with the nearest one, or an index out of range.
SettingRef ResolveSetting(std::string_view path);

// What a path prefix has below it: "snooping" -> global, interface, vlan. "" is the top.
std::vector<std::string_view> ChildrenOf(std::string_view prefix);
// The range of the keys below "snooping.interface" and "snooping.vlan"; none elsewhere.
std::optional<KeyRange> KeysOf(std::string_view prefix);

// "0 to 65535 (packets per second, 5000: no limit)"
std::string AllowedText(const Setting& setting);

// The candidate that begins alike, else the one with the smallest edit distance; "" when there are no
// candidates.
std::string_view Nearest(std::string_view word, std::span<const std::string_view> candidates);
size_t EditDistance(std::string_view a, std::string_view b);

// A whole decimal number without sign or leading zeros.
std::optional<uint32_t> ParseDecimal(std::string_view text);

}  // namespace vex::host
