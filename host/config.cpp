// config.cpp - reads the TOML file against the table of settings.
// In:  TOML text. Out: a Config, or the first problem in the file as InputError.
// The walk knows groups, keyed groups and settings from host/settings.h; only ports have a reader of their
// own.
#include "host/config.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "host/config_reader.h"
#include "host/error.h"
#include "host/settings.h"

namespace vex::host {
namespace {

constexpr size_t kMaxConfigBytes = 1 << 20;
constexpr size_t kMaxKeyParts = 16;  // no setting is deeper than five

// Keys and values come from the file; an error is one line whatever they hold.
std::string OneLine(std::string_view text) {
  std::string line;
  for (const char c : text.substr(0, 200)) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7F)
      line += fmt::format("\\x{:02x}", byte);
    else
      line += c;
  }
  return line;
}

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

std::string ReadWhole(const std::string& path) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"), &std::fclose);
  if (!file) throw InputError(fmt::format("{}: cannot open: {}", OneLine(path), std::strerror(errno)));
  std::string text(kMaxConfigBytes + 1, '\0');
  const size_t got = std::fread(text.data(), 1, text.size(), file.get());
  if (std::ferror(file.get()) != 0)
    throw InputError(fmt::format("{}: cannot read: {}", OneLine(path), std::strerror(errno)));
  if (got > kMaxConfigBytes)
    throw InputError(
        fmt::format("{}: larger than {} bytes, not a configuration file", OneLine(path), kMaxConfigBytes));
  text.resize(got);
  return text;
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

Config LoadConfig(const std::string& path) { return ParseConfig(ReadWhole(path), path); }

void ApplyOverrides(const ConfigOverrides& overrides, Config& config) {
  if (overrides.instances) config.capabilities.instances = *overrides.instances;
  if (overrides.causeid_type) config.capabilities.causeid_type = *overrides.causeid_type;
  if (overrides.no_check_cfg) config.capabilities.no_check_cfg = 1;
  if (overrides.switches) config.module.switches = *overrides.switches;
}

// ---- What the readers share ----------------------------------------------------------------------------

void Problems::Add(const toml::source_region& where, const std::string& text) {
  if (!text_.empty() && !(where.begin < first_)) return;
  first_ = where.begin;
  text_ = OneLine(text);
}

void Problems::ThrowFirst(const std::string& file) const {
  if (!text_.empty()) throw InputError(fmt::format("{}:{}:{}: {}", file, first_.line, first_.column, text_));
}

std::string_view KindOf(const toml::node& node) {
  switch (node.type()) {
    case toml::node_type::table:
      return "a table";
    case toml::node_type::array:
      return "an array";
    case toml::node_type::string:
      return "a string";
    case toml::node_type::integer:
      return "a whole number";
    case toml::node_type::floating_point:
      return "a decimal number";
    case toml::node_type::boolean:
      return "true or false";
    default:
      return "a date or time";
  }
}

std::optional<uint32_t> ReadNumber(const toml::node& node, std::string_view path, const NumberRange& range,
                                   Problems& problems) {
  const std::string meaning = range.meaning.empty() ? "" : fmt::format(" ({})", range.meaning);
  const auto value = node.is_integer() ? node.value<int64_t>() : std::nullopt;
  if (!value) {
    problems.Add(node.source(), fmt::format("{}: {} where a whole number {} to {}{} is expected", path,
                                            KindOf(node), range.min, range.max, meaning));
    return std::nullopt;
  }
  if (*value < int64_t{range.min} || *value > int64_t{range.max}) {
    problems.Add(node.source(), fmt::format("{}: {} is out of range, allowed {} to {}{}", path, *value,
                                            range.min, range.max, meaning));
    return std::nullopt;
  }
  return static_cast<uint32_t>(*value);
}

std::optional<bool> ReadFlag(const toml::node& node, std::string_view path, Problems& problems) {
  if (node.is_boolean()) return node.value<bool>();
  problems.Add(node.source(), fmt::format("{}: {} where true or false is expected", path, KindOf(node)));
  return std::nullopt;
}

std::optional<std::string> ReadText(const toml::node& node, std::string_view path, Problems& problems) {
  if (node.is_string()) return node.value<std::string>();
  problems.Add(node.source(), fmt::format("{}: {} where a string is expected", path, KindOf(node)));
  return std::nullopt;
}

void UnknownKey(const toml::key& key, std::string_view prefix, std::span<const std::string_view> valid,
                Problems& problems) {
  problems.Add(key.source(), fmt::format("unknown key \"{}{}\", the nearest valid key is \"{}{}\"", prefix,
                                         key.str(), prefix, Nearest(key.str(), valid)));
}

}  // namespace vex::host
