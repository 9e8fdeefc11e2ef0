// control_request.cpp - see control_request.h.
#include "host/live/control_request.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <vector>

#include "host/settings.h"

namespace vex::host::live {
namespace {

using Members = std::map<std::string, std::string>;

struct CommandRow {
  std::string_view name;
  std::vector<std::string_view> needed;
  std::vector<std::string_view> optional;
  Request (*make)(Members& members);
};

Request MakeShow(Members& members) {
  std::string& what = members["what"];
  if (std::ranges::find(kViews, what) == kViews.end()) {
    return RequestError{fmt::format("show \"{}\": there is {}", what, fmt::join(kViews, ", "))};
  }
  return ShowRequest{std::move(what)};
}
Request MakeSet(Members& members) {
  return SetRequest{std::move(members["key"]), std::move(members["value"])};
}
Request MakeTrace(Members& members) { return TraceRequest{std::move(members["on"])}; }

const std::vector<CommandRow>& Commands() {
  static const std::vector<CommandRow> rows = {
      {"show", {"what"}, {}, MakeShow},
      {"set", {"key", "value"}, {}, MakeSet},
      {"trace", {}, {"on"}, MakeTrace},
      {"reload", {}, {}, [](Members&) -> Request { return ReloadRequest{}; }},
      {"save", {}, {}, [](Members&) -> Request { return SaveRequest{}; }},
  };
  return rows;
}

Request UnknownCommand(std::string_view name) {
  std::vector<std::string_view> names;
  for (const CommandRow& row : Commands()) names.push_back(row.name);
  return RequestError{
      fmt::format("command \"{}\" is unknown, the nearest is \"{}\"", name, Nearest(name, names))};
}

// Every member is text: what it means is up to the command.
std::variant<RequestError, Members> ReadMembers(std::span<const uint8_t> line) {
  const auto object = nlohmann::json::parse(line.begin(), line.end(), nullptr, false);
  if (!object.is_object()) return RequestError{"a request is a JSON object on one line"};
  Members members;
  for (const auto& [name, value] : object.items()) {
    if (!value.is_string()) return RequestError{fmt::format("member \"{}\" must be text", name)};
    members[name] = value.get<std::string>();
  }
  return members;
}

}  // namespace

Request ParseRequest(std::span<const uint8_t> line) {
  if (line.size() > kMaxRequest)
    return RequestError{fmt::format("a request has at most {} bytes", kMaxRequest)};
  auto read = ReadMembers(line);
  if (auto* const error = std::get_if<RequestError>(&read)) return std::move(*error);
  Members& members = std::get<Members>(read);
  const std::string name = members["command"];
  const auto row = std::ranges::find(Commands(), name, &CommandRow::name);
  if (row == Commands().end()) return UnknownCommand(name);
  for (const std::string_view needed : row->needed) {
    if (!members.contains(std::string(needed)))
      return RequestError{fmt::format("{}: \"{}\" is missing", name, needed)};
  }
  for (const auto& [member, unused] : members) {
    const bool known = member == "command" || std::ranges::count(row->needed, member) != 0 ||
                       std::ranges::count(row->optional, member) != 0;
    if (!known) return RequestError{fmt::format("{}: has no \"{}\"", name, member)};
  }
  return row->make(members);
}

}  // namespace vex::host::live
