// config_reader.h - what the readers of the configuration file share: problems with places, checked values.
// In:  nodes of the parsed file. Out: numbers, flags and texts in range, or a problem noted.
// Private to host/config*.cpp. Problems are collected and the first one in the file is the one reported,
// because the parser hands tables over in the order of their names.
#pragma once

#include <toml++/toml.h>

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/config.h"

namespace vex::host {

class Problems {
 public:
  void Add(const toml::source_region& where, const std::string& text);
  // Throws InputError "file:line:column: text" for the first problem in the file, if there is any.
  void ThrowFirst(const std::string& file) const;
  bool empty() const { return text_.empty(); }

 private:
  toml::source_position first_{};
  std::string text_;
};

// "a string", "a table" ...
std::string_view KindOf(const toml::node& node);

struct NumberRange {
  uint32_t min, max;
  std::string_view meaning = {};  // unit or special values
};

// Each answers nothing after noting a problem. `path` names the key in it.
std::optional<uint32_t> ReadNumber(const toml::node& node, std::string_view path, const NumberRange& range,
                                   Problems& problems);
std::optional<bool> ReadFlag(const toml::node& node, std::string_view path, Problems& problems);
std::optional<std::string> ReadText(const toml::node& node, std::string_view path, Problems& problems);

void UnknownKey(const toml::key& key, std::string_view prefix, std::span<const std::string_view> valid,
                Problems& problems);

// [[port]]: adds to config.ports, and to config.module the trust of trusted ports.
void ReadPorts(const toml::node& node, Config& config, Problems& problems);

// [live]: config.live.
void ReadLive(const toml::node& node, Config& config, Problems& problems);

}  // namespace vex::host
