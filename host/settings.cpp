// settings.cpp - the table behind host/settings.h and the search in it.
// In:  paths and numbers. Out: fields of a Config. Rows are built once, at first use.
#include "host/settings.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <utility>

#include "host/error.h"

namespace vex::host {
namespace {

using Values = std::span<const uint32_t>;

// ---- Where each kind of row keeps its value ------------------------------------------------------------

template <auto Member>
Setting TopNumber(std::string path, std::string_view meaning) {
  return {
      std::move(path),
      SettingForm::kNumber,
      0,
      0xFFFFFFFF,
      meaning,
      [](const Setting&, Config& config, uint32_t, Values v) { Member(config) = v[0]; },
      [](const Setting&, const Config& config, uint32_t) { return std::vector<uint32_t>{Member(config)}; }};
}

constexpr auto kBoard = [](auto& c) -> auto& { return c.board; };
constexpr auto kDegradeRate = [](auto& c) -> auto& { return c.module.degrade_rate; };
constexpr auto kInstances = [](auto& c) -> auto& { return c.capabilities.instances; };
constexpr auto kCauseId = [](auto& c) -> auto& { return c.capabilities.causeid_type; };
constexpr auto kNoCheck = [](auto& c) -> auto& { return c.capabilities.no_check_cfg; };
constexpr auto kMlagV4 = [](auto& c) -> auto& { return c.capabilities.mlag_v4_rate; };
constexpr auto kMlagV6 = [](auto& c) -> auto& { return c.capabilities.mlag_v6_rate; };

Setting Switch(uint32_t number) {
  return {fmt::format("switches.{}", service::kSwitchNames[number]),
          SettingForm::kFlag,
          0,
          1,
          "",
          [](const Setting& self, Config& config, uint32_t, Values v) {
            const uint32_t bit = 1U << self.detail;
            config.module.switches = v[0] != 0 ? config.module.switches | bit : config.module.switches & ~bit;
          },
          [](const Setting& self, const Config& config, uint32_t) {
            return std::vector<uint32_t>{config.module.switches >> self.detail & 1U};
          },
          number};
}

struct GlobalScope {
  static constexpr std::string_view kPrefix = "snooping.global";
  static service::GlobalSettings& At(service::Settings& s, uint32_t) { return s.global; }
  static service::GlobalSettings Read(const service::Settings& s, uint32_t) { return s.global; }
};
struct InterfaceScope {
  static constexpr std::string_view kPrefix = "snooping.interface.N";
  static service::InterfaceSettings& At(service::Settings& s, uint32_t key) { return s.interfaces[key]; }
  static service::InterfaceSettings Read(const service::Settings& s, uint32_t key) {
    const auto found = s.interfaces.find(key);
    return found == s.interfaces.end() ? service::InterfaceSettings{} : found->second;
  }
};
struct VlanScope {
  static constexpr std::string_view kPrefix = "snooping.vlan.N";
  static service::VlanSettings& At(service::Settings& s, uint32_t key) { return s.vlans[key]; }
  static service::VlanSettings Read(const service::Settings& s, uint32_t key) {
    const auto found = s.vlans.find(key);
    return found == s.vlans.end() ? service::VlanSettings{} : found->second;
  }
};

enum Field : uint32_t { kEnable, kRate, kAuxEnable, kAux, kFieldCount };
constexpr uint32_t kSix = 16;  // added to the field in `detail`: the IPv6 half

struct FieldRow {
  std::string_view name;
  SettingForm form;
  uint32_t max;
  std::string_view meaning;
};
constexpr FieldRow kFields[kFieldCount] = {
    {"enable", SettingForm::kFlag, 255, "1: the rate limits"},
    {"rate", SettingForm::kNumber, 65535, "packets per second, 5000: no limit"},
    {"aux_enable", SettingForm::kFlag, 255, "kept for the service"},
    {"aux", SettingForm::kNumber, 65535, "kept for the service"},
};

void SetField(service::IpLimit& limit, uint32_t field, uint32_t value) {
  switch (field) {  // the row's range fits the field's width
    case kEnable:
      limit.enable = static_cast<uint8_t>(value);
      break;
    case kRate:
      limit.rate = static_cast<uint16_t>(value);
      break;
    case kAuxEnable:
      limit.aux_enable = static_cast<uint8_t>(value);
      break;
    default:
      limit.aux = static_cast<uint16_t>(value);
      break;
  }
}

uint32_t GetField(const service::IpLimit& limit, uint32_t field) {
  switch (field) {
    case kEnable:
      return limit.enable;
    case kRate:
      return limit.rate;
    case kAuxEnable:
      return limit.aux_enable;
    default:
      return limit.aux;
  }
}

template <class Scope>
Setting LimitField(uint32_t version, uint32_t field) {
  const FieldRow& row = kFields[field];
  return {fmt::format("{}.v{}.{}", Scope::kPrefix, version, row.name),
          row.form,
          0,
          row.max,
          row.meaning,
          [](const Setting& self, Config& config, uint32_t key, Values v) {
            auto& record = Scope::At(config.module, key);
            SetField(self.detail >= kSix ? record.v6 : record.v4, self.detail % kSix, v[0]);
          },
          [](const Setting& self, const Config& config, uint32_t key) {
            const auto record = Scope::Read(config.module, key);
            return std::vector<uint32_t>{
                GetField(self.detail >= kSix ? record.v6 : record.v4, self.detail % kSix)};
          },
          field + (version == 6 ? kSix : 0)};
}

template <class Scope>
void AddLimits(std::vector<Setting>& rows) {
  for (const uint32_t version : {4U, 6U})
    for (uint32_t field = 0; field < kFieldCount; ++field) rows.push_back(LimitField<Scope>(version, field));
}

Setting InterfaceTrust() {
  return {"snooping.interface.N.trusted",
          SettingForm::kFlag,
          0,
          0xFFFFFFFF,
          "any non-zero value: trusted",
          [](const Setting&, Config& config, uint32_t key, Values v) {
            config.module.interfaces[key].trusted = v[0];
          },
          [](const Setting&, const Config& config, uint32_t key) {
            return std::vector<uint32_t>{InterfaceScope::Read(config.module, key).trusted};
          }};
}

Setting VlanTrust() {
  return {"snooping.vlan.N.trusted",
          SettingForm::kPorts,
          kPortIndexRange.min,
          kPortIndexRange.max,
          "indexes of the ports trusted in this VLAN",
          [](const Setting&, Config& config, uint32_t key, Values v) {
            config.module.vlans[key].trusted = {v.begin(), v.end()};
          },
          [](const Setting&, const Config& config, uint32_t key) {
            const auto trusted = VlanScope::Read(config.module, key).trusted;
            return std::vector<uint32_t>(trusted.begin(), trusted.end());
          }};
}

std::vector<Setting> BuildTable() {
  std::vector<Setting> rows;
  rows.push_back(TopNumber<kBoard>("board", "board type that the platform reports"));
  rows.push_back(TopNumber<kDegradeRate>("degrade_rate", "packets per second, 4294967295: no limit"));
  rows.push_back(
      TopNumber<kInstances>("capabilities.instances", "1 to 4 spread clients, others run one instance"));
  rows.push_back(TopNumber<kCauseId>("capabilities.causeid_type", "scheme of the cause ids"));
  rows.push_back(
      TopNumber<kNoCheck>("capabilities.no_check_cfg", "1: take DHCPv4 replies whatever the switches say"));
  rows.back().form = SettingForm::kFlag;
  rows.push_back(TopNumber<kMlagV4>("capabilities.mlag_v4_rate", "packets per second, 0: no limit"));
  rows.push_back(TopNumber<kMlagV6>("capabilities.mlag_v6_rate", "packets per second, 0: no limit"));
  for (uint32_t number = 0; number < service::kSwitchCount; ++number) rows.push_back(Switch(number));
  AddLimits<GlobalScope>(rows);
  AddLimits<InterfaceScope>(rows);
  AddLimits<VlanScope>(rows);
  rows.push_back(InterfaceTrust());
  rows.push_back(VlanTrust());
  return rows;
}

std::string_view TakeWord(std::string_view& path) {
  const size_t dot = path.find('.');
  const std::string_view word = path.substr(0, dot);
  path = dot == std::string_view::npos ? std::string_view{} : path.substr(dot + 1);
  return word;
}

}  // namespace

const std::vector<Setting>& AllSettings() {
  static const std::vector<Setting> table = BuildTable();
  return table;
}

const Setting* FindSetting(std::string_view pattern) {
  const auto& all = AllSettings();
  const auto found =
      std::find_if(all.begin(), all.end(), [&](const Setting& s) { return s.path == pattern; });
  return found == all.end() ? nullptr : &*found;
}

std::optional<KeyRange> KeysOf(std::string_view prefix) {
  if (prefix == "snooping.interface") return kPortIndexRange;
  if (prefix == "snooping.vlan") return kVlanIdRange;
  return std::nullopt;
}

std::vector<std::string_view> ChildrenOf(std::string_view prefix) {
  std::vector<std::string_view> children;
  for (const Setting& setting : AllSettings()) {
    std::string_view rest = setting.path;
    if (!prefix.empty()) {
      if (!rest.starts_with(prefix) || rest.size() <= prefix.size() || rest[prefix.size()] != '.') continue;
      rest.remove_prefix(prefix.size() + 1);
    }
    const std::string_view child = rest.substr(0, rest.find('.'));
    if (std::find(children.begin(), children.end(), child) == children.end()) children.push_back(child);
  }
  return children;
}

SettingRef ResolveSetting(std::string_view path) {
  std::string pattern;
  uint32_t key = 0;
  for (std::string_view rest = path; !rest.empty();) {
    const std::string_view word = TakeWord(rest);
    const auto keys = KeysOf(pattern);
    const auto children = ChildrenOf(pattern);
    if (keys) {
      const auto number = ParseDecimal(word);
      if (!number || *number < keys->min || *number > keys->max)
        throw InputError(fmt::format("{}: \"{}\" is not {}, allowed {} to {}", path, word, keys->noun,
                                     keys->min, keys->max));
      key = *number;
    } else if (std::find(children.begin(), children.end(), word) == children.end()) {
      throw InputError(fmt::format("{}: unknown setting \"{}\", the nearest is \"{}{}{}\"", path, word,
                                   pattern, pattern.empty() ? "" : ".", Nearest(word, children)));
    }
    if (!pattern.empty()) pattern += '.';
    pattern += keys ? "N" : word;
  }
  const Setting* setting = FindSetting(pattern);
  if (setting == nullptr) {
    const auto children = ChildrenOf(pattern);
    throw InputError(
        fmt::format("{}: is a group, name one of its settings: {}", path, fmt::join(children, ", ")));
  }
  return {setting, key};
}

std::string AllowedText(const Setting& setting) {
  std::string text;
  switch (setting.form) {
    case SettingForm::kNumber:
      text = fmt::format("{} to {}", setting.min, setting.max);
      break;
    case SettingForm::kFlag:
      text = setting.max == 1 ? "true or false"
                              : fmt::format("true, false or {} to {}", setting.min, setting.max);
      break;
    case SettingForm::kPorts:
      text = fmt::format("a list of numbers {} to {}", setting.min, setting.max);
      break;
  }
  if (!setting.meaning.empty()) text += fmt::format(" ({})", setting.meaning);
  return text;
}

size_t EditDistance(std::string_view a, std::string_view b) {
  a = a.substr(0, 64);  // no name is longer; bounds the work on a hostile key
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = std::exchange(row[0], i);
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t change = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
      diagonal = row[j];
      row[j] = std::min({change, row[j] + 1, row[j - 1] + 1});
    }
  }
  return row[b.size()];
}

std::string_view Nearest(std::string_view word, std::span<const std::string_view> candidates) {
  // A name cut short or written on is nearer than one of equal length and other letters.
  const auto distance = [word](std::string_view name) {
    const bool begins = !word.empty() && (name.starts_with(word) || word.starts_with(name));
    return std::pair(!begins, EditDistance(word, name));
  };
  const auto best = std::ranges::min_element(candidates, {}, distance);
  return best == candidates.end() ? std::string_view{} : *best;
}

std::optional<uint32_t> ParseDecimal(std::string_view text) {
  if (text.empty() || text.size() > 10 || (text.size() > 1 && text[0] == '0')) return std::nullopt;
  uint32_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return value;
}

}  // namespace vex::host
