// json_lines.cpp - lines formatted into one buffer and written in large pieces.
// In:  see json_lines.h. Out: the bytes; a failed write is remembered and thrown by Finish().
// Names that come from outside (file names, lines of the module) are escaped by the JSON library; all else is
// numbers and fixed words and is formatted directly, because a capture has millions of frames.
#include "host/json_lines.h"

#include <fmt/compile.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <iterator>
#include <nlohmann/json.hpp>

#include "host/error.h"

namespace vex::host {
namespace {

constexpr size_t kPiece = 64 * 1024;

class Line {
 public:
  explicit Line(fmt::memory_buffer& buffer) : out_(std::back_inserter(buffer)), buffer_(buffer) {}

  template <class Format, class... Args>
  void Add(const Format& format, const Args&... args) {
    fmt::format_to(out_, format, args...);
  }
  void Text(std::string_view text) { buffer_.append(text.data(), text.data() + text.size()); }
  template <class List>
  void Names(const List& list) {
    const char* comma = "";
    for (const auto& item : list) {
      Add(FMT_COMPILE("{}\"{}\""), comma, ScopeName(item));
      comma = ",";
    }
  }

 private:
  std::back_insert_iterator<fmt::memory_buffer> out_;
  fmt::memory_buffer& buffer_;
};

// The text between two markers, "" when they are not there.
std::string_view Between(std::string_view text, std::string_view before, std::string_view after) {
  const size_t from = text.find(before);
  if (from == std::string_view::npos) return {};
  text.remove_prefix(from + before.size());
  const size_t to = text.find(after);
  return to == std::string_view::npos ? std::string_view{} : text.substr(0, to);
}

bool IsNumber(std::string_view text) {
  uint32_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc{} && end == text.data() + text.size() && (text.size() == 1 || text[0] != '0');
}

// A peer-link report carries its numbers in its text only.
void PeerLinkFields(std::string_view text, Line& line) {
  const auto kind = Between(text, "The rate of ", " packet exceeds");
  const auto limit = Between(text, "speed limit(", "/s)");
  const auto refused = Between(text, "pktdiscardcnt:", ")");
  if (!kind.empty() && IsNumber(limit) && IsNumber(refused))
    line.Add(FMT_COMPILE(",\"kind\":{},\"limit\":{},\"refused\":{}"), JsonString(kind), limit, refused);
  line.Add(FMT_COMPILE(",\"text\":{}"), JsonString(text));
}

Scope ScopeOf(const SpeedInfo& info) {
  constexpr ScopeKind kKinds[] = {ScopeKind::kInterface, ScopeKind::kVlan, ScopeKind::kGlobal};
  const uint32_t row = (info.kind + 2) % 3;  // kinds 1 to 3, then 4 to 6 the same for DHCPv6
  return {kKinds[row], static_cast<uint8_t>(info.kind > 3 ? 6 : 4), info.index_id};
}

}  // namespace

std::string JsonString(std::string_view text) {
  return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

JsonLines::~JsonLines() { Spill(); }

void JsonLines::SetFile(std::string_view file) {
  if (!file_json_.empty() && file == file_) return;
  file_ = file;
  file_json_ = JsonString(file);
}

void JsonLines::OnFrame(const FrameOutcome& o) {
  SetFile(o.file);
  Line line(buffer_);
  line.Add(
      FMT_COMPILE("{{\"file\":{},\"frame\":{},\"time\":\"{}.{:09}\",\"port\":{},\"vlan\":{},\"app_type\":{},"
                  "\"pkt_type\":{},\"taken\":{},\"channel\":"),
      file_json_, o.frame, o.time.seconds, o.time.nanoseconds, o.port, o.vlan, o.app_type, o.pkt_type,
      o.taken);
  if (o.channel)
    line.Add(FMT_COMPILE("{}"), *o.channel);
  else
    line.Text("null");
  line.Add(FMT_COMPILE(",\"verdict\":\"{}\",\"refused\":"), Name(o.verdict));
  if (o.refused == Refusal::kNone)
    line.Text("null");
  else
    line.Add(FMT_COMPILE("\"{}\""), Name(o.refused));
  line.Text(",\"refused_by\":[");
  line.Names(o.refused_by);
  line.Text("],\"delivered\":[");
  const char* comma = "";
  for (const uint8_t channel : o.delivered) {
    line.Add(FMT_COMPILE("{}{}"), comma, channel);
    comma = ",";
  }
  line.Text("]}\n");
  if (buffer_.size() >= kPiece) Spill();
}

void JsonLines::OnEvent(const ReplayEvent& e) {
  SetFile(e.file);
  Line line(buffer_);
  const bool speed_info = e.kind == ReplayEvent::Kind::kSpeedInfo;
  line.Add(FMT_COMPILE("{{\"event\":\"{}\",\"file\":{},\"frame\":{},\"time\":\"{}.{:09}\""),
           speed_info ? "speed-info" : "peer-link", file_json_, e.frame, e.time.seconds, e.time.nanoseconds);
  if (speed_info) {
    const Scope scope = ScopeOf(e.speed_info);
    line.Add(FMT_COMPILE(",\"kind\":{},\"scope\":\"{}\",\"version\":{},\"index\":{},\"refused\":{}"),
             e.speed_info.kind, ScopeName(scope), scope.version, e.speed_info.index_id, e.speed_info.dropped);
  } else {
    PeerLinkFields(e.text, line);
  }
  line.Text("}\n");
  if (buffer_.size() >= kPiece) Spill();
}

void JsonLines::Summary(const ReplayTotals& totals) {
  Line line(buffer_);
  for (const ScopeTally& tally : totals.scopes) {
    line.Add(
        FMT_COMPILE(
            "{{\"event\":\"scope\",\"scope\":\"{}\",\"version\":{},\"limit\":{},\"offered\":{},\"passed\":{},"
            "\"refused\":{},\"worst_second\":{},\"worst_refused\":{},\"reported\":{},\"pending\":{},"
            "\"lost\":{},\"balanced\":{}}}\n"),
        ScopeName(tally.scope), tally.scope.version, tally.limit, tally.offered, tally.passed, tally.refused,
        tally.worst_second, tally.worst_refused, tally.reported, tally.pending, tally.lost, tally.Balanced());
  }
  line.Add(FMT_COMPILE("{{\"summary\":{{\"frames\":{},\"not_presented\":{},\"not_wanted\":{},\"refused\":{},"
                       "\"delivered\":{},\"failed\":{},\"stats\":[{}]}}}}\n"),
           totals.frames, totals.not_presented, totals.not_wanted, totals.refused, totals.delivered,
           totals.failed, fmt::to_string(fmt::join(totals.stats, ",")));
}

void JsonLines::Spill() {
  if (buffer_.size() != 0 && !failed_)
    failed_ = std::fwrite(buffer_.data(), 1, buffer_.size(), out_) != buffer_.size();
  buffer_.clear();
}

void JsonLines::Finish() {
  Spill();
  if (failed_ || std::fflush(out_) != 0)
    throw InputError(fmt::format("the JSON lines could not be written: {}", std::strerror(errno)));
}

}  // namespace vex::host
