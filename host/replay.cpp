// replay.cpp - the loop over files and frames: clock, packet, question, hook, channels, totals.
// In:  see replay.h. Out: totals; outcomes and events to the sink, in the order in which they happened.
// The order per frame: the clock moves (timers report), the module is asked, the hook runs, the channels are
// emptied.
#include "host/replay.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <limits>
#include <optional>

#include "dhcp_vex_rate_limit_notify.h"
#include "host/frame_filter.h"
#include "host/punt.h"
#include "host/scope_watch.h"
#include "platform/board.h"
#include "platform/clock.h"
#include "platform/logs.h"

namespace vex::host {
namespace {

constexpr uint32_t kPktTypeDhcp = 2;
constexpr size_t kInnerHead = 264;  // in front of the body of the module's own messages
constexpr int64_t kNanosPerSecond = 1'000'000'000;

// The module sees the low 32 bits of the seconds. A time that nanoseconds in 64 bits cannot tell keeps those.
int64_t ClockTime(const CaptureTime& time) {
  constexpr int64_t kLast = std::numeric_limits<int64_t>::max() / kNanosPerSecond - 1;
  const int64_t seconds =
      time.seconds >= -kLast && time.seconds <= kLast ? time.seconds : time.seconds & 0xFFFFFFFF;
  return seconds * kNanosPerSecond + time.nanoseconds;
}

uint64_t TotalBytes(const std::vector<std::string>& files) {
  uint64_t total = 0;
  for (const std::string& file : files) {
    struct stat info {};
    if (stat(file.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return 0;
    total += static_cast<uint64_t>(info.st_size);
  }
  return total;
}

class LogSink {
 public:
  explicit LogSink(platform::LogHub::Sink sink)
      : id_(platform::Logs().AddSink(platform::MaskOf(platform::LogOutput::kImAgent), std::move(sink))) {}
  ~LogSink() { platform::Logs().RemoveSink(id_); }
  LogSink(const LogSink&) = delete;
  LogSink& operator=(const LogSink&) = delete;

 private:
  uint64_t id_;
};

class Replay {
 public:
  Replay(const platform::Module& module, const ReplayOptions& options)
      : options_(options),
        view_(module),
        filter_(options.filter),
        ports_(options.ports, options.port_by),
        service_([this](std::span<const uint8_t> message) { OnInnerMessage(message); }),
        scopes_(view_),
        ask_channel_(options.sink != nullptr && options.ask_channel) {
    progress_.bytes_total = TotalBytes(options.files);
  }
  ReplayTotals Run();

 private:
  void RunFile(const std::string& path);
  void Step(const Frame& frame);
  void Start(const CaptureTime& time);
  void SetClock(const CaptureTime& time);
  Obstacle ObstacleTo(const Frame& frame) const;
  void Present(const Frame& frame, const ParsedFrame& parsed, const PortRecord& port);
  void Hold(const Frame& frame, const ParsedFrame& parsed, const PortRecord& port);
  void Judge(const Punted& punted);
  bool Refused(const Punted& punted, const ScopeList& moved);
  void Count();
  void OnInnerMessage(std::span<const uint8_t> message);
  void OnLogLine(std::string_view line);
  void Emit(ReplayEvent event);

  const ReplayOptions& options_;
  const ModuleView view_;
  const FrameFilter filter_;
  PortTable ports_;
  ServiceEnd service_;
  ScopeWatch scopes_;
  const bool ask_channel_;
  std::optional<LogSink> log_sink_;
  bool started_ = false;
  bool hook_there_ = false;  // a module that found itself on a foreign board registers none
  bool from_peer_link_ = false;
  bool held_ = false;  // the frame that was waited for has come: the replay is over
  bool diagnose_ = false;
  CaptureTime last_time_;
  ReplayProgress progress_;
  uint64_t bytes_of_files_done_ = 0;
  FrameOutcome outcome_;
  ReplayTotals totals_;
};

ReplayTotals Replay::Run() {
  for (const std::string& file : options_.files) {
    if (!held_) RunFile(file);
  }
  if (!started_) Start({});  // a configuration is refused or not, frames or no frames
  log_sink_.reset();
  totals_.by_channel = service_.received();
  std::copy_n(view_.stats, totals_.stats.size(), totals_.stats.begin());
  totals_.macs_beyond_limit = ports_.macs_beyond_limit();
  totals_.scopes = scopes_.Tallies();
  return std::move(totals_);
}

void Replay::RunFile(const std::string& path) {
  const std::string name = path == "-" ? path : std::filesystem::path(path).filename().string();
  outcome_.file = name;
  CaptureReader reader(path, last_time_);
  Frame frame;
  while (!held_ && reader.Next(frame)) {
    if (!filter_.Matches(frame)) {
      ++totals_.filtered_out;
      continue;
    }
    Step(frame);
    if (!options_.progress) continue;
    progress_.frames = totals_.frames;
    progress_.bytes_done = bytes_of_files_done_ + reader.bytes_read();
    options_.progress(progress_);
  }
  if (reader.error()) totals_.errors.push_back(*reader.error());
  last_time_ = reader.last_time();
  bytes_of_files_done_ += reader.bytes_read();
}

void Replay::Start(const CaptureTime& time) {
  started_ = true;
  platform::TheClock().UseVirtual(ClockTime(time));
  if (options_.configure) options_.configure();
  hook_there_ = std::ranges::any_of(platform::Hooks().All(), [](const platform::HookTable::Hook& hook) {
    return hook.point == platform::HookTable::kHostPacketPoint;
  });
  DeliveredList none;
  service_.Collect(none);
  log_sink_.emplace([this](const platform::LogRecord& record) { OnLogLine(record.text); });
}

void Replay::SetClock(const CaptureTime& time) {
  if (!started_) return Start(time);
  platform::TheClock().SetTo(ClockTime(time));
  service_.CollectInner();
}

void Replay::Step(const Frame& frame) {
  const bool ethernet = frame.link_type == kLinkTypeEthernet;
  const ParsedFrame parsed = ethernet ? ParseFrame(frame.bytes) : ParsedFrame{};
  static const PortRecord kNoPort;  // no MAC and no tag to find one by
  const PortRecord& port =
      ethernet || options_.port_by == PortBy::kInterface ? ports_.Assign(frame, parsed) : kNoPort;
  const std::string_view file = outcome_.file;
  outcome_ = {};
  outcome_.file = file;
  outcome_.frame = frame.number;
  outcome_.time = frame.time;
  outcome_.port = port.index;
  outcome_.vlan = parsed.vlan_id();
  SetClock(frame.time);
  ++totals_.frames;
  if (frame.number == options_.hold_at && options_.held) return Hold(frame, parsed, port);
  if (ObstacleTo(frame) == Obstacle::kNone) Present(frame, parsed, port);
  Count();
  if (options_.on_refused && outcome_.refused != Refusal::kNone) {
    options_.on_refused(frame, port, outcome_, scopes_.Reason(outcome_.refused_by));
  }
  if (options_.sink != nullptr) options_.sink->OnFrame(outcome_);
}

Obstacle Replay::ObstacleTo(const Frame& frame) const {
  if (frame.link_type != kLinkTypeEthernet) return Obstacle::kLinkType;
  const bool whole = frame.bytes.size() == frame.captured_length;
  if (!whole || !platform::Packets().Fits(frame.bytes.size())) return Obstacle::kSize;
  return hook_there_ ? Obstacle::kNone : Obstacle::kInactive;
}

void Replay::Hold(const Frame& frame, const ParsedFrame& parsed, const PortRecord& port) {
  held_ = true;
  service_.SetTap(options_.received);
  const Obstacle obstacle = ObstacleTo(frame);
  options_.held({frame, parsed, port, obstacle, [&](bool diagnose) -> const FrameOutcome& {
                   diagnose_ = diagnose;
                   if (obstacle == Obstacle::kNone) Present(frame, parsed, port);
                   Count();
                   return outcome_;
                 }});
}

void Replay::Present(const Frame& frame, const ParsedFrame& parsed, const PortRecord& port) {
  platform::PacketPtr packet = platform::Packets().New(frame.bytes, AttributesOf(parsed, port));
  if (!packet) return;  // nothing is left in the pool: counted as not presented
  outcome_.app_type = parsed.app_type;
  from_peer_link_ = port.peer_link;
  const Question answer = Ask(view_, packet.get(), ask_channel_ || held_);
  if (diagnose_) packet->attr.diagSwitch = 1;  // behind the questions, which leave no trace
  outcome_.pkt_type = std::min(answer.pkt_type, kPktTypeNone);
  outcome_.taken = answer.take;
  outcome_.channel = answer.channel;
  if (outcome_.pkt_type == kPktTypeDhcp) scopes_.Before(packet.get());
  Judge(Punt(view_, std::move(packet)));
}

// Every fate has its own evidence. A frame without any, or with two, breaks the identity of the totals.
void Replay::Judge(const Punted& punted) {
  outcome_.verdict = punted.verdict;
  service_.Collect(outcome_.delivered);
  const bool wanted = outcome_.pkt_type != kPktTypeNone;
  const bool gated = outcome_.pkt_type == kPktTypeDhcp;
  const bool received = !outcome_.delivered.empty();
  const bool refused = gated && Refused(punted, scopes_.After());
  if (!wanted) ++totals_.not_wanted;
  if (received) ++totals_.delivered;
  if (refused) ++totals_.refused;
  // Past the gates: counted there by the module, or of a type that no gate looks at (its copy may have failed
  // first).
  const bool failed = wanted && !received && (punted.accepted || !gated);
  if (failed) ++totals_.failed;
  if (int{!wanted} + int{received} + int{refused} + int{failed} != 1) ++totals_.odd_fates;
}

bool Replay::Refused(const Punted& punted, const ScopeList& moved) {
  const bool came_back = punted.verdict == Verdict::kContinue && !punted.accepted;
  if (moved.empty() && !(came_back && from_peer_link_)) return false;
  outcome_.refused_by = moved;
  if (moved.empty()) {
    scopes_.RefusedByPeerLinkSwitch();
    outcome_.refused_by.Add({ScopeKind::kPeerLinkOff, 0, 0});
  }
  const bool peer_link = outcome_.refused_by.begin()->kind >= ScopeKind::kPeerLink;
  outcome_.refused = peer_link ? Refusal::kPeerLink : Refusal::kSnooping;
  return true;
}

void Replay::Count() {
  ++totals_.by_pkt_type[outcome_.pkt_type][static_cast<size_t>(outcome_.verdict)];
  if (outcome_.verdict == Verdict::kNotPresented) {
    ++totals_.not_presented;
    return;
  }
  ++totals_.by_app_type[outcome_.app_type];
  ++totals_.by_refusal[static_cast<size_t>(outcome_.refused)];
}

void Replay::OnInnerMessage(std::span<const uint8_t> message) {
  DhcpSpeedInfoMsg body{};
  if (message.size() != kInnerHead + sizeof body) return;
  std::memcpy(&body, message.data() + kInnerHead, sizeof body);
  ReplayEvent event;
  event.kind = ReplayEvent::Kind::kSpeedInfo;
  event.speed_info = {body.msgKind, body.indexId, body.dropCnt};
  scopes_.Reported(event.speed_info);
  ++totals_.speed_info_events;
  Emit(event);
}

void Replay::OnLogLine(std::string_view line) {
  service_.CollectInner();  // what the other timer sent before this line comes before it
  if (!scopes_.Reported(line)) return;
  ReplayEvent event;
  event.kind = ReplayEvent::Kind::kPeerLink;
  event.text = line;
  ++totals_.peer_link_events;
  Emit(event);
}

void Replay::Emit(ReplayEvent event) {
  if (options_.sink == nullptr) return;
  event.file = outcome_.file;
  event.frame = outcome_.frame;
  event.time = outcome_.time;
  options_.sink->OnEvent(event);
}

}  // namespace

ReplayTotals RunReplay(const platform::Module& module, const ReplayOptions& options) {
  return Replay(module, options).Run();
}

}  // namespace vex::host
