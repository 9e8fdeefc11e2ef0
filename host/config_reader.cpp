// config_reader.cpp - problems with their places, and the checked values that every table holds.
// In:  nodes of the parsed file. Out: numbers, flags and texts in range; the first problem as InputError.
#include "host/config_reader.h"

#include <fmt/format.h>

#include "host/error.h"
#include "host/settings.h"
#include "host/text_file.h"

namespace vex::host {

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
