// report.cpp - the tables of the replay report, top to bottom.
// In:  the totals. Out: text. Every number comes from the totals; what does not occur is left out, except
// where its absence is the message (an instance that received nothing, a statistics counter at 0).
#include "host/report.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <functional>
#include <numeric>

#include "host/table.h"
#include "service/channel_plan.h"

namespace vex::host {
namespace {

using Align = Table::Align;
using Lines = std::vector<std::string>;

constexpr size_t kMaxScopeRows = 16;  // the report stays on one screen
constexpr std::array<std::string_view, 8> kStatNames = {
    "hookPktCnt",           "svcMsgCnt",       "egressPubFailCnt", "egressCutHeadFailCnt",
    "getThreadInfoFailCnt", "getChnIdFailCnt", "pktSendFailCnt",   "innerMsgSendFailCnt"};

std::string PktTypeName(size_t type) {
  switch (type) {
    case 0:
      return "0 ICMP echo reply";
    case 1:
      return "1 ARP reply";
    case 2:
      return "2 DHCP";
    case 12:
      return "12 ICMPv6 ND";
    case kPktTypeNone:
      return "13 not wanted";
    default:
      return fmt::format("{}", type);
  }
}

std::string Number(uint64_t value) { return fmt::format("{}", value); }

Lines AppTypes(const ReplayTotals& totals) {
  Table table("by application type", {"", "frames", "share"}, {Align::kLeft, Align::kRight, Align::kRight});
  for (size_t type = 0; type < totals.by_app_type.size(); ++type) {
    const uint64_t count = totals.by_app_type[type];
    if (count != 0) table.Row({std::string(AppTypeName(type)), Number(count), Percent(count, totals.frames)});
  }
  if (totals.not_presented != 0)
    table.Row({"not presented", Number(totals.not_presented), Percent(totals.not_presented, totals.frames)});
  return table.Lines();
}

Lines PktTypes(const ReplayTotals& totals) {
  Table table("by packet type and verdict", {"", "continue", "taken", "take_failed", "not_presented"},
              {Align::kLeft, Align::kRight, Align::kRight, Align::kRight, Align::kRight});
  for (size_t type = 0; type < totals.by_pkt_type.size(); ++type) {
    const auto& row = totals.by_pkt_type[type];
    if (std::accumulate(row.begin(), row.end(), uint64_t{0}) == 0) continue;
    table.Row({PktTypeName(type), Number(row[0]), Number(row[1]), Number(row[2]), Number(row[3])});
  }
  return table.Lines();
}

// Instance k is the reader on thread k + 1; thread 0 serves what belongs to no instance.
Lines Channels(const ReplayTotals& totals, uint32_t instances) {
  const uint64_t all = std::accumulate(totals.by_channel.begin(),
                                       totals.by_channel.begin() + service::kInnerChannel, uint64_t{0});
  Table table("by channel", {"", "carries", "messages", "share"},
              {Align::kRight, Align::kLeft, Align::kRight, Align::kRight});
  for (size_t channel = 0; channel < service::kInnerChannel; ++channel) {
    const auto& row = service::kChannels[channel];
    const uint64_t count = totals.by_channel[channel];
    if (count == 0 && (row.thread == 0 || row.thread > instances)) continue;
    table.Row({Number(channel), std::string(row.carries), Number(count), Percent(count, all)});
  }
  const uint64_t inner = totals.by_channel[service::kInnerChannel];
  if (inner != 0) table.Row({Number(service::kInnerChannel), "inner messages", Number(inner), ""});
  return table.Lines();
}

Lines Instances(const ReplayTotals& totals, uint32_t instances) {
  std::array<std::array<uint64_t, 2>, service::kThreadNames.size()> sums{};  // by thread: DHCP, ICMP and ND
  uint64_t all = 0;
  for (size_t channel = 0; channel < service::kInnerChannel; ++channel) {
    const auto& row = service::kChannels[channel];
    sums[row.thread][row.carries.starts_with("DHCP") ? 0 : 1] += totals.by_channel[channel];
    all += totals.by_channel[channel];
  }
  Table table("by instance", {"", "DHCP", "ICMP/ND/ARP", "all", "share"},
              {Align::kLeft, Align::kRight, Align::kRight, Align::kRight, Align::kRight});
  for (size_t thread = 0; thread < sums.size(); ++thread) {
    const uint64_t sum = sums[thread][0] + sums[thread][1];
    if (sum == 0 && (thread == 0 || thread > instances)) continue;
    table.Row({thread == 0 ? "no instance" : fmt::format("instance {}", thread - 1), Number(sums[thread][0]),
               Number(sums[thread][1]), Number(sum), Percent(sum, all)});
  }
  return table.empty() ? Lines{} : table.Lines();
}

Lines Refusals(const ReplayTotals& totals) {
  Table table("refused by gate", {"", "frames", "share"}, {Align::kLeft, Align::kRight, Align::kRight});
  for (const Refusal gate : {Refusal::kSnooping, Refusal::kPeerLink}) {
    const uint64_t count = totals.by_refusal[static_cast<size_t>(gate)];
    table.Row({std::string(Name(gate)), Number(count), Percent(count, totals.frames)});
  }
  table.Row({"speed-info messages", Number(totals.speed_info_events)});
  table.Row({"peer-link lines", Number(totals.peer_link_events)});
  return table.Lines();
}

Lines Statistics(const ReplayTotals& totals) {
  Table table("statistics of the module", {"", "", "", ""},
              {Align::kLeft, Align::kRight, Align::kLeft, Align::kRight});
  for (size_t i = 0; i < 4; ++i)
    table.Row({std::string(kStatNames[i]), Number(totals.stats[i]), std::string(kStatNames[i + 4]),
               Number(totals.stats[i + 4])});
  Lines lines = table.Lines();
  lines.erase(lines.begin() + 1);  // the columns need no head
  return lines;
}

// The module spreads clients over 1 to 4 instances and knows none with any other number.
std::string InstanceCount(uint32_t number) {
  if (number == 1) return "1 instance";
  const bool spread = number >= 1 && number <= service::kMaxInstances;
  return fmt::format("{} instances{}", number, spread ? "" : " (as if one: clients are not spread)");
}

std::string ScopeLabel(const Scope& scope) {
  return scope.version == 0 ? ScopeName(scope) : fmt::format("{} v{}", ScopeName(scope), scope.version);
}

// What refused most, in the order of the totals: a limit that bites is not hidden behind idle ones.
std::vector<const ScopeTally*> ShownScopes(const std::vector<ScopeTally>& scopes) {
  std::vector<const ScopeTally*> shown;
  for (const ScopeTally& tally : scopes) shown.push_back(&tally);
  std::ranges::stable_sort(shown, std::greater(), [](const ScopeTally* tally) { return tally->refused; });
  shown.resize(std::min(shown.size(), kMaxScopeRows));
  std::ranges::sort(shown);
  return shown;
}

Lines Scopes(const ReplayTotals& totals) {
  Table table("budgets",
              {"", "limit/s", "offered", "passed", "refused", "worst second", "reported", "pending"},
              {Align::kLeft, Align::kRight, Align::kRight, Align::kRight, Align::kRight, Align::kRight,
               Align::kRight, Align::kRight});
  for (const ScopeTally* shown : ShownScopes(totals.scopes)) {
    const ScopeTally& tally = *shown;
    const bool off = tally.scope.kind == ScopeKind::kPeerLinkOff;
    table.Row(
        {ScopeLabel(tally.scope), off ? "" : Number(tally.limit), Number(tally.offered), Number(tally.passed),
         Number(tally.refused),
         tally.refused == 0 || off ? "" : fmt::format("{} at {}", tally.worst_refused, tally.worst_second),
         off ? "" : Number(tally.reported), off ? "" : Number(tally.pending)});
  }
  if (table.empty()) return {};
  Lines lines = table.Lines();
  if (totals.scopes.size() > kMaxScopeRows)
    lines.push_back(
        fmt::format("  and {} more, none refused more; see --json", totals.scopes.size() - kMaxScopeRows));
  if (std::ranges::any_of(totals.scopes, [](const ScopeTally& tally) {
        return tally.Balanced() && tally.refused > tally.reported + tally.pending + tally.lost;
      }))
    lines.emplace_back("  reported and pending are the module's own counts, of 16 bits: modulo 65536");
  for (const ScopeTally& tally : totals.scopes)
    if (!tally.Balanced())
      lines.push_back(
          fmt::format("  {}: {} refused, but {} reported + {} pending + {} lost do not add up to it",
                      ScopeLabel(tally.scope), tally.refused, tally.reported, tally.pending, tally.lost));
  return lines;
}

Lines Notes(const ReplayTotals& totals) {
  Lines notes;
  if (totals.filtered_out != 0)
    notes.push_back(fmt::format("{} frames did not match the filter", totals.filtered_out));
  if (totals.macs_beyond_limit != 0)
    notes.push_back(fmt::format("{} frames of stations beyond the limit of learned ports share the last one",
                                totals.macs_beyond_limit));
  for (const CaptureError& error : totals.errors) notes.push_back("incomplete: " + error.Message());
  return notes;
}

}  // namespace

std::string FormatIdentity(const ReplayTotals& t) {
  std::string text =
      fmt::format("{} frames = {} not presented + {} not wanted + {} refused + {} delivered + {} failed: {}",
                  t.frames, t.not_presented, t.not_wanted, t.refused, t.delivered, t.failed,
                  t.IdentityHolds() ? "holds" : "DOES NOT HOLD");
  if (t.odd_fates != 0) text += fmt::format(" ({} frames without one clear fate)", t.odd_fates);
  return text;
}

std::string FormatReport(const ReportHead& head, const ReplayTotals& totals) {
  Lines lines = {fmt::format("{}: {} frames, {}, configuration {}", head.source, totals.frames,
                             InstanceCount(head.instances), head.config.empty() ? "default" : head.config)};
  const auto append = [&lines](const Lines& block) {
    if (block.empty()) return;
    lines.emplace_back();
    lines.insert(lines.end(), block.begin(), block.end());
  };
  const uint32_t instances =
      head.instances <= service::kMaxInstances ? head.instances : 0;  // shown even when idle
  append(SideBySide(AppTypes(totals), PktTypes(totals)));
  append(SideBySide(Channels(totals, instances), Instances(totals, instances)));
  append(SideBySide(Refusals(totals), Statistics(totals)));
  append(Scopes(totals));
  append(Notes(totals));
  append({FormatIdentity(totals)});
  return JoinLines(lines);
}

}  // namespace vex::host
