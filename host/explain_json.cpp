// explain_json.cpp - the story as one JSON object.
// In:  a Story. Out: JSON text on one line; names as in the replay's JSON lines where they mean the same.
#include <fmt/format.h>

#include <bit>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "host/explain.h"
#include "service/channel_plan.h"
#include "service/settings.h"

namespace vex::host {
namespace {

using Json = nlohmann::ordered_json;

Json ScopesJson(const ScopeList& scopes) {
  Json list = Json::array();
  for (const Scope& scope : scopes) list.push_back(ScopeName(scope));
  return list;
}

Json OutcomeJson(const Outcome& o) {
  Json delivered = Json::array();
  for (unsigned left = o.delivered; left != 0; left &= left - 1) delivered.push_back(std::countr_zero(left));
  return {{"pkt_type", o.pkt_type},
          {"taken", o.taken},
          {"channel", o.channel == Outcome::kNone ? Json() : Json(o.channel)},
          {"verdict", Name(o.verdict)},
          {"refused", o.refused == Refusal::kNone ? Json() : Json(Name(o.refused))},
          {"refused_by", ScopesJson(o.refused_by)},
          {"delivered", delivered}};
}

Json NeedJson(const SwitchNeed& need) {
  Json alone = Json::array();
  for (uint32_t n = 0; n < service::kSwitchCount; ++n)
    if ((need.alone >> n & 1U) != 0) alone.push_back(service::kSwitchNames[n]);
  return {{"wanted_without_switches", need.without}, {"switches_that_suffice", alone}};
}

Json InstanceJson(const Outcome& o) {
  if (o.channel >= service::kInnerChannel || service::kChannels[o.channel].thread == 0) return {};
  return service::kChannels[o.channel].thread - 1;
}

}  // namespace

std::string StoryJson(const Story& s) {
  Json answers = Json::object(), budgets = Json::array(), keys = Json::array(), what_if = Json::array();
  for (const Answer& answer : s.answers)
    answers[std::string(answer.function)] = static_cast<int32_t>(answer.value);
  for (const BudgetStep& step : s.budgets)
    budgets.push_back({{"scope", ScopeName(step.scope)},
                       {"version", step.scope.version},
                       {"limit", step.limit},
                       {"used", step.used},
                       {"charged", step.charged},
                       {"refused", step.refusals != 0}});
  for (const ClientKey& key : s.keys)
    keys.push_back({{"bytes", fmt::format("{:02x}", fmt::join(key.bytes, ""))},
                    {"offset", key.offset ? Json(*key.offset) : Json()},
                    {"hash", key.hash},
                    {"source", key.source}});
  for (const WhatIf& what : s.what_if) {
    Json changed = OutcomeJson(what.outcome);
    changed["setting"] = what.setting;
    changed["change"] = what.change;
    what_if.push_back(std::move(changed));
  }
  Json story = {{"file", std::filesystem::path(s.file).filename().string()},
                {"frame", s.number},
                {"time", fmt::format("{}.{:09}", s.time.seconds, s.time.nanoseconds)},
                {"port", s.port.index},
                {"vlan", s.parsed.vlan_id()},
                {"app_type", s.obstacle == Obstacle::kNone ? s.parsed.app_type : 0}};
  story.update(OutcomeJson(s.outcome));
  story["instance"] = InstanceJson(s.outcome);
  story["sequence"] = s.sequence ? Json(*s.sequence) : Json();
  story["answers"] = answers;
  if (s.need) story["need"] = NeedJson(*s.need);
  story["keys"] = keys;
  story["budgets"] = budgets;
  story["settings_tried"] = s.settings_tried;
  story["what_if"] = what_if;
  story["trace"] = s.trace;
  return story.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace vex::host
