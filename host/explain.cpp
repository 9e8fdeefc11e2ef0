// explain.cpp - replays up to the frame, asks, experiments, and lets it go.
// In:  a running module with its configuration. Out: the Story.
// Order: questions that change nothing, the forked experiments, then the frame itself in this process.
#include "host/explain.h"

#include <fmt/format.h>

#include <cstring>

#include "dhcp_vex_pkt_deliver.h"
#include "host/error.h"
#include "host/explain_view.h"
#include "host/punt.h"
#include "platform/logs.h"
#include "platform/packet.h"

namespace vex::host {
namespace {

constexpr size_t kHeadBytes = 96;

class Teller {
 public:
  Teller(platform::Module& module, const Config& config) : module_(module), config_(config), view_(module) {}

  void Tell(const HeldFrame& held) {
    Describe(held);
    story_.obstacle = held.obstacle;
    told_ = true;
    if (held.obstacle != Obstacle::kNone) {
      story_.outcome = OutcomeOf(held.present(false));
      return;
    }
    Probe probe(module_, view_, config_, held);
    AskModule(held);
    story_.need = probe.Switches();
    const std::vector<WhatIf> tried = probe.EverySetting();
    LetGo(held);
    story_.settings_tried = tried.size();
    for (const WhatIf& what : tried)
      if (!SameFate(what.outcome, story_.outcome)) story_.what_if.push_back(what);
  }
  // The first header seen; copies of one frame share its number.
  void Received(std::span<const uint8_t> message) {
    DhcpIngressHeader header;
    if (story_.sequence || message.size() < sizeof header) return;
    std::memcpy(&header, message.data(), sizeof header);
    story_.sequence = header.sequence;
  }
  bool told() const { return told_; }
  Story& story() { return story_; }

 private:
  void Describe(const HeldFrame& held) {
    story_.number = held.frame.number;
    story_.time = held.frame.time;
    story_.captured_length = held.frame.captured_length;
    story_.original_length = held.frame.original_length;
    const auto head = held.frame.bytes.first(std::min(held.frame.bytes.size(), kHeadBytes));
    story_.head.assign(head.begin(), head.end());
    story_.link_type = held.frame.link_type;
    story_.parsed = held.parsed;
    story_.port = held.port;
  }

  void AskModule(const HeldFrame& held) {
    const Silence silence(view_.debug_switch);
    const platform::PacketPtr packet =
        platform::Packets().New(held.frame.bytes, AttributesOf(held.parsed, held.port));
    if (!packet) return;
    story_.answers = AskPredicates(module_, *packet);
    const Question question = Ask(view_, packet.get(), true);
    story_.keys =
        FindKeys(module_, view_, *packet, question.pkt_type, question.channel.value_or(Outcome::kNone));
  }

  void LetGo(const HeldFrame& held) {
    const platform::LogCapture trace(platform::MaskOf(platform::LogOutput::kHostDiag));
    const platform::PacketPtr packet =
        platform::Packets().New(held.frame.bytes, AttributesOf(held.parsed, held.port));
    if (!packet) throw InputError("explain: no packet buffer");
    const BudgetProbe budgets(view_, *packet);
    story_.outcome = OutcomeOf(held.present(true));
    story_.budgets = budgets.Steps();
    story_.trace = trace.Texts(platform::LogOutput::kHostDiag);
  }

  platform::Module& module_;
  const Config& config_;
  ModuleView view_;
  Story story_;
  bool told_ = false;
};

}  // namespace

Story Explain(platform::Module& module, const Config& config, const ReplayOptions& replay, uint64_t frame) {
  Teller teller(module, config);
  ReplayOptions options = replay;
  options.hold_at = frame;
  options.held = [&teller](const HeldFrame& held) { teller.Tell(held); };
  options.received = [&teller](uint8_t, std::span<const uint8_t> message) { teller.Received(message); };
  const ReplayTotals totals = RunReplay(module, options);
  const std::string& file = options.files.front();
  if (!teller.told()) {
    if (!totals.errors.empty()) throw InputError(totals.errors.front().Message());
    throw InputError(fmt::format("{}: has {} frames, none with the number {}", file, totals.frames, frame));
  }
  teller.story().file = file;
  return std::move(teller.story());
}

}  // namespace vex::host
