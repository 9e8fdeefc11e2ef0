// config.cpp - reads the TOML file against the table of settings.
// In:  TOML text. Out: a Config, or the first problem in the file as InputError.
// The walk knows groups, keyed groups and settings from host/settings.h; only ports have a reader of their
// own.
#include "host/config.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/config_reader.h"
#include "host/error.h"
#include "host/settings.h"
#include "host/text_file.h"

namespace vex::host {
namespace {

constexpr size_t kMaxConfigBytes = 1 << 20;
constexpr size_t kMaxKeyParts = 16;  // no setting is deeper than five

std::string Join(std::string_view prefix, std::string_view child) {
  return prefix.empty() ? std::string(child) : fmt::format("{}.{}", prefix, child);
}

std::optional<std::vector<uint32_t>> ReadPortList(const toml::node& node, std::string_view path,
                                                  const Setting& setting, Problems& problems) {
  const toml::array* list = node.as_array();
  if (list == nullptr) {
    problems.Add(node.source(),
                 fmt::format("{}: {} where {} is expected", path, KindOf(node), AllowedText(setting)));
    return std::nullopt;
  }
  std::vector<uint32_t> ports;
  for (const toml::node& item : *list) {
    const auto port = ReadNumber(item, path, {setting.min, setting.max, "a port index"}, problems);
    if (!port) return std::nullopt;
    if (std::find(ports.begin(), ports.end(), *port) != ports.end()) {
      problems.Add(item.source(), fmt::format("{}: port {} is listed twice", path, *port));
      return std::nullopt;
    }
    ports.push_back(*port);
  }
  return ports;
}

std::optional<std::vector<uint32_t>> ReadValues(const toml::node& node, std::string_view path,
                                                const Setting& setting, Problems& problems) {
  const auto one = [](auto value) -> std::optional<std::vector<uint32_t>> {
    if (!value) return std::nullopt;
    return std::vector<uint32_t>{static_cast<uint32_t>(*value)};
  };
  switch (setting.form) {
    case SettingForm::kPorts:
      return ReadPortList(node, path, setting, problems);
    case SettingForm::kFlag:
      if (node.is_boolean()) return one(node.value<bool>());
      if (setting.max == 1 || !node.is_integer()) {
        problems.Add(node.source(),
                     fmt::format("{}: {} where {} is expected", path, KindOf(node), AllowedText(setting)));
        return std::nullopt;
      }
      [[fallthrough]];
    case SettingForm::kNumber:
      return one(ReadNumber(node, path, {setting.min, setting.max, setting.meaning}, problems));
  }
  return std::nullopt;
}

class Walk {
 public:
  Walk(Config& config, Problems& problems) : config_(config), problems_(problems) {}

  // `path` is how the file spells the place, `pattern` how the table does ("N" for a number).
  void Table(const toml::table& table, const std::string& path, const std::string& pattern, uint32_t number) {
    const auto keys = KeysOf(pattern);
    for (const auto& [key, node] : table) {
      const std::string here = Join(path, key.str());
      if (keys)
        Keyed(key, node, here, Join(pattern, "N"), *keys);
      else
        Named(key, node, here, pattern, number);
    }
  }

 private:
  void Keyed(const toml::key& key, const toml::node& node, const std::string& path,
             const std::string& pattern, const KeyRange& range) {
    const auto number = ParseDecimal(key.str());
    if (!number || *number < range.min || *number > range.max)
      problems_.Add(key.source(), fmt::format("{}: \"{}\" is not {}, allowed {} to {}", path, key.str(),
                                              range.noun, range.min, range.max));
    else
      Group(node, path, pattern, *number);
  }

  void Named(const toml::key& key, const toml::node& node, const std::string& path,
             const std::string& pattern, uint32_t number) {
    if (pattern.empty() && key.str() == "port") return ReadPorts(node, config_, problems_);
    if (pattern.empty() && key.str() == "live") return ReadLive(node, config_, problems_);
    const std::string below = Join(pattern, key.str());
    if (const Setting* setting = FindSetting(below)) {
      if (const auto values = ReadValues(node, path, *setting, problems_))
        setting->set(*setting, config_, number, *values);
      return;
    }
    auto valid = ChildrenOf(pattern);
    if (std::find(valid.begin(), valid.end(), key.str()) != valid.end())
      return Group(node, path, below, number);
    if (pattern.empty()) valid.insert(valid.end(), {"live", "port"});
    UnknownKey(key, path.substr(0, path.size() - key.str().size()), valid, problems_);
  }

  void Group(const toml::node& node, const std::string& path, const std::string& pattern, uint32_t number) {
    if (const toml::table* table = node.as_table()) return Table(*table, path, pattern, number);
    const auto keys = KeysOf(pattern);
    problems_.Add(node.source(),
                  fmt::format("{}: {} where a table is expected, with {}", path, KindOf(node),
                              keys ? fmt::format("{} {} to {} as key", keys->noun, keys->min, keys->max)
                                   : fmt::format("{}", fmt::join(ChildrenOf(pattern), ", "))));
  }

  Config& config_;
  Problems& problems_;
};

// Behind the comment or string that starts here; `at` itself where none does.
size_t BehindText(std::string_view toml, size_t at) {
  const char quote = toml[at];
  if (quote == '#') return std::min(toml.find('\n', at), toml.size());
  if (quote != '"' && quote != '\'') return at;
  const auto tripled = [&](size_t from) { return toml.substr(from, 3) == std::string(3, quote); };
  const bool long_string = tripled(at);
  for (at += long_string ? 3 : 1; at < toml.size(); ++at) {
    if (toml[at] == '\\' && quote == '"') {
      ++at;
    } else if (long_string ? tripled(at) : toml[at] == quote || toml[at] == '\n') {
      // Up to two quotes in front of the closing three belong to the text.
      const size_t last = toml.find_first_not_of(quote, at);
      return long_string ? std::min({last, at + 5, toml.size()}) : at + 1;
    }
  }
  return toml.size();
}

// The parser recurses once per part of a dotted key; a hostile file must not reach the end of the stack.
void RefuseDeepKeys(std::string_view toml, const std::string& name) {
  constexpr std::string_view kBetweenKeys = "\n=,[]{}";
  size_t dots = 0;
  for (size_t at = 0; at < toml.size();) {
    if (const size_t behind = BehindText(toml, at); behind != at) {
      at = behind;
      continue;
    }
    if (kBetweenKeys.find(toml[at]) != std::string_view::npos) dots = 0;
    if (toml[at] == '.' && ++dots >= kMaxKeyParts) {
      const std::string_view before = toml.substr(0, at);
      throw InputError(fmt::format("{}:{}:{}: a key of more than {} parts", name,
                                   std::count(before.begin(), before.end(), '\n') + 1,
                                   at - (before.rfind('\n') + 1) + 1, kMaxKeyParts));
    }
    ++at;
  }
}

}  // namespace

Config ParseConfig(std::string_view toml, const std::string& name) {
  RefuseDeepKeys(toml, OneLine(name));
  Config config;
  Problems problems;
  try {
    const toml::table root = toml::parse(toml, name);
    Walk(config, problems).Table(root, "", "", 0);
  } catch (const toml::parse_error& error) {
    const auto at = error.source().begin;
    throw InputError(
        fmt::format("{}:{}:{}: {}", OneLine(name), at.line, at.column, OneLine(error.description())));
  }
  problems.ThrowFirst(OneLine(name));
  for (PortRecord& port : config.ports) {
    const auto found = config.module.interfaces.find(port.index);
    port.trusted |= found != config.module.interfaces.end() && found->second.trusted != 0;
    if (port.trusted && config.module.interfaces[port.index].trusted == 0)
      config.module.interfaces[port.index].trusted = 1;
  }
  return config;
}

Config LoadConfig(const std::string& path) {
  return ParseConfig(ReadTextFile(path, kMaxConfigBytes, "a configuration file"), path);
}

void ApplyOverrides(const ConfigOverrides& overrides, Config& config) {
  if (overrides.instances) config.capabilities.instances = *overrides.instances;
  if (overrides.causeid_type) config.capabilities.causeid_type = *overrides.causeid_type;
  if (overrides.no_check_cfg) config.capabilities.no_check_cfg = 1;
  if (overrides.switches) config.module.switches = *overrides.switches;
}

}  // namespace vex::host
