// explain_text.cpp - the story for a person, at three depths.
// In:  a Story. Out: text. Depth 1: one line. 2: what happened, in order, and what would have changed it. 3:
// also the bytes, every answer of the module and its own trace.
#include <fmt/format.h>

#include <bit>

#include "host/explain.h"
#include "service/channel_plan.h"
#include "service/settings.h"

namespace vex::host {
namespace {

std::string Hex(std::span<const uint8_t> bytes) { return fmt::format("{:02x}", fmt::join(bytes, " ")); }
std::string Mac(const MacAddress& mac) { return fmt::format("{:02x}", fmt::join(mac, ":")); }

std::string Names(const ScopeList& scopes) {
  std::vector<std::string> names;
  for (const Scope& scope : scopes)
    names.push_back(scope.kind == ScopeKind::kPeerLinkOff ? "switch mlag_peerlink is off" : ScopeName(scope));
  return fmt::to_string(fmt::join(names, ", "));
}

std::string Channels(uint16_t mask) {
  std::vector<int> channels;
  for (unsigned left = mask; left != 0; left &= left - 1) channels.push_back(std::countr_zero(left));
  return fmt::format("{} {}", channels.size() == 1 ? "channel" : "channels", fmt::join(channels, ", "));
}

std::string Fate(const Outcome& o) {
  if (o.verdict == Verdict::kNotPresented) return "not presented";
  if (o.pkt_type == kPktTypeNone) return "not wanted";
  if (o.refused != Refusal::kNone)
    return fmt::format("refused by the {} gate: {}", Name(o.refused), Names(o.refused_by));
  if (o.delivered != 0) return fmt::format("{} on {}", o.taken ? "taken" : "copied", Channels(o.delivered));
  return fmt::format("wanted, but delivered nowhere ({})", Name(o.verdict));
}

std::string Fate(const Story& s) {
  switch (s.obstacle) {
    case Obstacle::kNone:
      return Fate(s.outcome);
    case Obstacle::kLinkType:
      return fmt::format("{}: link type {} is not Ethernet", Fate(s.outcome), s.link_type);
    case Obstacle::kSize:
      return fmt::format("{}: {} bytes do not fit a packet buffer", Fate(s.outcome), s.captured_length);
    case Obstacle::kInactive:
      return fmt::format("{}: the module is inactive on this board", Fate(s.outcome));
  }
  return {};
}

std::string Consequence(const Outcome& o) {
  switch (o.verdict) {
    case Verdict::kTaken:
      return "the service has the packet, the device does not touch it again";
    case Verdict::kTakeFailed:
      return "the module wanted to take it and could not deliver it; the device keeps the packet";
    case Verdict::kContinue:
      return o.delivered != 0 ? "the service has a copy, the device goes on with the packet"
                              : "the device goes on with the packet, the service never sees it";
    default:
      return "the module never saw it";
  }
}

std::string Wanted(const Story& story) {
  if (story.outcome.pkt_type == kPktTypeNone) return "no";
  return fmt::format("yes, packet type {}, {}", story.outcome.pkt_type,
                     story.outcome.taken ? "to be taken" : "as a copy");
}

// Which switches decide. `what_if` holds the flips that turn wanted into not wanted, or back.
std::string Reason(const Story& story) {
  const bool wanted = story.outcome.pkt_type != kPktTypeNone;
  std::vector<std::string> alone, flips;
  for (uint32_t n = 0; n < service::kSwitchCount; ++n)
    if ((story.need->alone >> n & 1U) != 0) alone.emplace_back(service::kSwitchNames[n]);
  for (const WhatIf& what : story.what_if)
    if (what.setting.starts_with("switches.") && (what.outcome.pkt_type != kPktTypeNone) != wanted)
      flips.push_back(fmt::format("{} {}", what.setting.substr(9), what.change));
  if (story.need->without) return "wanted whatever the switches say";
  if (!wanted && flips.empty())
    return alone.empty() ? "no switch alone would make it wanted"
                         : fmt::format("needs one of {}", fmt::join(alone, ", "));
  if (!wanted) return fmt::format("would be wanted with {}", fmt::join(flips, " or "));
  if (!flips.empty()) return fmt::format("not wanted with {}", fmt::join(flips, " or "));
  return fmt::format("each of {} suffices", fmt::join(alone, ", "));
}

void AddPlane(const Story& s, std::string& text) {
  const auto& p = s.parsed;
  if (s.link_type != kLinkTypeEthernet) {
    text += fmt::format("data plane  port {}, link type {}: not parsed\n", s.port.index, s.link_type);
    return;
  }
  text += fmt::format("data plane  port {} \"{}\"{}{}, {}\n", s.port.index, s.port.name,
                      s.port.management ? ", management" : "", s.port.peer_link ? ", peer-link" : "",
                      p.tags == 0 ? "untagged" : fmt::format("VLAN {}", p.vlan_id()));
  text += fmt::format("            application type {} ({}), {} bytes of L2 header, {} -> {}", p.app_type,
                      AppTypeName(p.app_type), p.l2_length, Mac(p.src_mac), Mac(p.dst_mac));
  if (p.l4_src_port != 0 || p.l4_dst_port != 0)
    text += fmt::format(", UDP {} -> {}", p.l4_src_port, p.l4_dst_port);
  text += s.port.cause != 0 ? fmt::format(", cause {}\n", s.port.cause) : "\n";
}

void AddClassification(const Story& s, int depth, std::string& text) {
  text += fmt::format("wanted      {}: {}\n", Wanted(s), Reason(s));
  if (depth < 3 && s.outcome.pkt_type == kPktTypeNone && s.parsed.app_type == kAppNone) return;
  for (const Answer& answer : s.answers)
    text += fmt::format("            {} answers {}\n", answer.function, static_cast<int32_t>(answer.value));
}

void AddBudgets(const Story& s, std::string& text) {
  const char* title = "budgets     ";
  for (const BudgetStep& step : s.budgets) {
    text += fmt::format(
        "{}{:<26} {:>5} of {} used in this second: {}\n", title, ScopeName(step.scope), step.used, step.limit,
        step.refusals != 0 ? "refused"
                           : (step.charged > 1 ? fmt::format("passed, charged {}", step.charged) : "passed"));
    title = "            ";
  }
  if (s.budgets.empty() && s.outcome.pkt_type != kPktTypeNone) text += "budgets     none met\n";
}

void AddChannel(const Story& s, std::string& text) {
  for (const ClientKey& key : s.keys) {
    text += fmt::format("client key  {}, {} bytes{} ({})\n", Hex(key.bytes), key.bytes.size(),
                        key.offset ? fmt::format(" at offset {} of the frame", *key.offset) : "", key.source);
    text += fmt::format("hash        {}\n", key.hash);
  }
  if (s.outcome.pkt_type == kPktTypeNone) return;
  if (s.outcome.channel == Outcome::kNone) {
    text += "channel     none\n";
    return;
  }
  text += fmt::format("channel     {}", s.outcome.channel);
  if (s.outcome.channel < service::kInnerChannel) {
    const auto& row = service::kChannels[s.outcome.channel];
    text += row.thread == 0
                ? fmt::format(", no instance ({})", service::kThreadNames[0])
                : fmt::format(", instance {} ({})", row.thread - 1, service::kThreadNames[row.thread]);
  }
  text += s.sequence ? fmt::format("\nsequence    {}\n", *s.sequence) : "\n";
}

void AddWhatIf(const Story& s, std::string& text) {
  if (s.what_if.empty()) {
    text += fmt::format("none of the {} settings tried would have changed this\n", s.settings_tried);
    return;
  }
  text += "what would have changed it\n";
  for (const WhatIf& what : s.what_if)
    text +=
        fmt::format("  {:<51}  {}\n", fmt::format("{} {}", what.setting, what.change), Fate(what.outcome));
}

void AddBytes(const Story& s, std::string& text) {
  text += fmt::format("bytes       the first {} of {}\n", s.head.size(), s.captured_length);
  const std::span<const uint8_t> head(s.head);
  for (size_t at = 0; at < head.size(); at += 16)
    text += fmt::format("  {:04x}  {}\n", at, Hex(head.subspan(at, std::min<size_t>(16, head.size() - at))));
}

}  // namespace

std::string FormatStory(const Story& s, int depth) {
  std::string text =
      fmt::format("frame {} of {}, {}.{:09}", s.number, s.file, s.time.seconds, s.time.nanoseconds);
  if (depth <= 1) return fmt::format("{}, port {}: {}\n", text, s.port.index, Fate(s));
  text += fmt::format(
      ", {} bytes{}\n", s.captured_length,
      s.original_length > s.captured_length ? fmt::format(" of {} captured", s.original_length) : "");
  if (depth >= 3) AddBytes(s, text);
  AddPlane(s, text);
  if (s.need) AddClassification(s, depth, text);
  if (s.obstacle == Obstacle::kNone) AddBudgets(s, text);
  AddChannel(s, text);
  text += fmt::format("outcome     {}\n            {}\n", Fate(s), Consequence(s.outcome));
  if (depth >= 3) {
    text += s.trace.empty() ? "trace       the module wrote nothing about this packet\n" : "trace\n";
    for (const std::string& line : s.trace) text += fmt::format("  {}\n", line);
  }
  if (s.obstacle == Obstacle::kNone) AddWhatIf(s, text);
  return text;
}

}  // namespace vex::host
