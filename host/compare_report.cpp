// compare_report.cpp - tables and lines of a comparison.
#include "host/compare_report.h"

#include <fmt/format.h>

#include "host/json_lines.h"
#include "host/table.h"

namespace vex::host {
namespace {

using Align = Table::Align;

std::string Time(const FrameFate& fate) { return fmt::format("{}.{:09}", fate.seconds, fate.nanoseconds); }

Table Fates(const Comparison& sums) {
  Table table("what became of the frames", {"", "A", "B"}, {Align::kLeft, Align::kRight, Align::kRight});
  for (size_t i = 0; i < kFates; ++i) {
    table.Row({std::string(kFateNames[i]), fmt::to_string(sums.a.totals.fates[i]),
               fmt::to_string(sums.b.totals.fates[i])});
  }
  return table;
}

Table Changes(const Comparison& sums) {
  Table table("changed", {"", "frames", "share"}, {Align::kLeft, Align::kRight, Align::kRight});
  const auto row = [&](const char* name, uint64_t count) {
    table.Row({name, fmt::to_string(count), Percent(count, sums.frames)});
  };
  row("any of it", sums.changed);
  row("verdict", sums.verdict);
  row("refusing gate", sums.refused);
  row("instance", sums.instance);
  row("wanted or not", sums.wanted);
  return table;
}

Table Moves(const Comparison& sums) {
  Table table("from A to B", {"A", "B", "frames"}, {Align::kLeft, Align::kLeft, Align::kRight});
  for (size_t a = 0; a < kFates; ++a) {
    for (size_t b = 0; b < kFates; ++b) {
      if (a == b || sums.moved[a][b] == 0) continue;
      table.Row({std::string(kFateNames[a]), std::string(kFateNames[b]), fmt::to_string(sums.moved[a][b])});
    }
  }
  for (const auto& [masks, count] : sums.channels) {
    table.Row({"delivered to " + ChannelNames(masks.first), "delivered to " + ChannelNames(masks.second),
               fmt::to_string(count)});
  }
  return table;
}

Table Frames(const ChangeList& list) {
  Table table("first changed frames", {"file", "frame", "time", "port", "A", "B"},
              {Align::kLeft, Align::kRight, Align::kRight, Align::kRight, Align::kLeft, Align::kLeft});
  for (const auto& row : list.rows()) table.Row(row);
  return table;
}

std::string SideJson(const FrameFate& fate) {
  const std::string refused =
      fate.refused == Refusal::kNone ? "null" : fmt::format("\"{}\"", Name(fate.refused));
  return fmt::format("{{\"port\":{},\"pkt_type\":{},\"verdict\":\"{}\",\"refused\":{},\"delivered\":[{}]}}",
                     fate.port, fate.pkt_type, Name(fate.verdict), refused,
                     ChannelNames(fate.delivered, ","));
}

std::string TotalsJson(const SideTotals& totals) {
  const auto of = [&](Fate fate) { return totals.fates[static_cast<size_t>(fate)]; };
  return fmt::format(
      "{{\"frames\":{},\"not_presented\":{},\"not_wanted\":{},\"refused\":{},\"refused_snooping\":{},"
      "\"refused_peer_link\":{},\"delivered\":{},\"failed\":{}}}",
      totals.frames, of(Fate::kNotPresented), of(Fate::kNotWanted), of(Fate::kSnooping) + of(Fate::kPeerLink),
      of(Fate::kSnooping), of(Fate::kPeerLink), of(Fate::kDelivered), of(Fate::kFailed));
}

}  // namespace

void ChangeList::Add(const ChangedFrame& frame) {
  if (rows_.size() == kShown) return;
  rows_.push_back({std::string(frame.file), fmt::to_string(frame.a.frame), Time(frame.a),
                   fmt::to_string(frame.a.port), frame.a.Describe(), frame.b.Describe()});
}

std::string FormatComparison(const CompareHead& head, const Comparison& sums, const ChangeList& list) {
  std::string text = fmt::format("{}: {} frames\nA: {}\nB: {}\n\n", head.source, sums.frames, head.a, head.b);
  text += JoinLines(SideBySide(Fates(sums).Lines(), Changes(sums).Lines()));
  if (sums.changed == 0) return text + "\nNothing changed.\n";
  if (const Table moves = Moves(sums); !moves.empty()) text += "\n" + JoinLines(moves.Lines());
  text += "\n" + JoinLines(Frames(list).Lines());
  if (sums.changed > list.rows().size()) {
    text += fmt::format("  and {} more; --json lists all\n", sums.changed - list.rows().size());
  }
  return text;
}

std::string ChangeJson(const ChangedFrame& frame) {
  return fmt::format(
      "{{\"file\":{},\"frame\":{},\"time\":\"{}\",\"port\":{},\"vlan\":{},\"app_type\":{},\"changed\":[\"{}"
      "\"],"
      "\"a\":{},\"b\":{}}}\n",
      JsonString(frame.file), frame.a.frame, Time(frame.a), frame.a.port, frame.a.vlan, frame.a.app_type,
      ChangeNames(frame.change, "\",\""), SideJson(frame.a), SideJson(frame.b));
}

std::string CompareSummaryJson(const Comparison& sums) {
  return fmt::format(
      "{{\"summary\":{{\"frames\":{},\"changed\":{},\"verdict\":{},\"refused\":{},\"instance\":{},\"wanted\":"
      "{},"
      "\"a\":{},\"b\":{}}}}}\n",
      sums.frames, sums.changed, sums.verdict, sums.refused, sums.instance, sums.wanted,
      TotalsJson(sums.a.totals), TotalsJson(sums.b.totals));
}

}  // namespace vex::host
