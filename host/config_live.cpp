// config_live.cpp - the table [live] of the configuration file: what only the switch on real ports reads.
// In:  the parsed table. Out: config.live, or a problem noted.
#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "host/config_reader.h"
#include "host/error.h"
#include "host/settings.h"

namespace vex::host {
namespace {

constexpr size_t kMaxText = 255;

struct LiveKey {
  std::string_view name;
  uint32_t LiveSettings::*number = nullptr;
  NumberRange range{};
  std::string LiveSettings::*text = nullptr;
};
constexpr std::array kLiveKeys = {
    LiveKey{"threads", &LiveSettings::threads, {1, 64, "receive threads"}},
    LiveKey{"station_age", &LiveSettings::station_age, {1, 1'000'000, "seconds"}},
    LiveKey{"max_bindings", &LiveSettings::max_bindings, {1, 1'000'000, "bindings"}},
    LiveKey{.name = "bindings", .text = &LiveSettings::bindings},
    LiveKey{.name = "socket", .text = &LiveSettings::socket},
    LiveKey{.name = "metrics", .text = &LiveSettings::metrics},
};

void ReadKey(const LiveKey& row, const toml::node& node, LiveSettings& live, Problems& problems) {
  const std::string path = fmt::format("live.{}", row.name);
  if (row.number != nullptr) {
    live.*row.number = ReadNumber(node, path, row.range, problems).value_or(live.*row.number);
    return;
  }
  live.*row.text = ReadText(node, path, problems).value_or("");
  if ((live.*row.text).size() > kMaxText) {
    problems.Add(node.source(), fmt::format("{}: {} bytes, at most {} are allowed", path,
                                            (live.*row.text).size(), kMaxText));
  }
}

std::vector<std::string_view> Names() {
  std::vector<std::string_view> names;
  for (const LiveKey& row : kLiveKeys) names.push_back(row.name);
  return names;
}

}  // namespace

void SetLive(LiveSettings& live, std::string_view key, std::string_view value) {
  const auto row =
      std::find_if(kLiveKeys.begin(), kLiveKeys.end(), [&](const LiveKey& k) { return k.name == key; });
  if (row == kLiveKeys.end())
    throw InputError(fmt::format("live.{}: unknown, the nearest is \"live.{}\"", key, Nearest(key, Names())));
  if (row->text != nullptr) {
    if (value.size() > kMaxText)
      throw InputError(fmt::format("live.{}: {} bytes, at most {} are allowed", key, value.size(), kMaxText));
    live.*row->text = value;
    return;
  }
  const auto number = ParseDecimal(value);
  if (!number || *number < row->range.min || *number > row->range.max)
    throw InputError(fmt::format("live.{}: \"{}\" is not {} to {} ({})", key, value, row->range.min,
                                 row->range.max, row->range.meaning));
  live.*row->number = *number;
}

void ReadLive(const toml::node& node, Config& config, Problems& problems) {
  const auto valid = Names();
  const toml::table* const table = node.as_table();
  if (table == nullptr) {
    problems.Add(node.source(), fmt::format("live: {} where a table is expected, with {}", KindOf(node),
                                            fmt::join(valid, ", ")));
    return;
  }
  for (const auto& [key, value] : *table) {
    bool known = false;
    for (const LiveKey& row : kLiveKeys) {
      if (row.name != key.str()) continue;
      ReadKey(row, value, config.live, problems);
      known = true;
    }
    if (!known) UnknownKey(key, "live.", valid, problems);
  }
}

}  // namespace vex::host
