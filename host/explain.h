// explain.h - the story of one frame, as values: what was known of it, what the module answered, what it did.
// In:  a replay stopped in front of the frame. Out: a Story for explain_text and explain_json.
// No rule of the module lives here: every answer is a call of one of its exports, a record of its store, or
// an experiment in a process of its own (explain_probe.h).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/config.h"
#include "host/explain_probe.h"
#include "host/replay.h"
#include "platform/module_loader.h"

namespace vex::host {

// One question to the module about the packet, and its answer.
struct Answer {
  std::string_view function;
  uint32_t value;
};

// One budget that the frame met: its counter moved.
struct BudgetStep {
  Scope scope;
  uint32_t limit = 0;
  uint32_t used = 0;     // in the frame's second, before the frame
  uint32_t charged = 0;  // what the frame added; 0 when refused
  uint32_t refusals = 0;
};

// The bytes that choose the instance.
struct ClientKey {
  std::vector<uint8_t> bytes;
  std::optional<size_t> offset;  // from the start of the frame; none: outside of it
  uint32_t hash = 0;
  std::string source;  // the function that named it, or how it was found
};

struct Story {
  std::string file;
  uint64_t number = 0;
  CaptureTime time;
  uint64_t captured_length = 0;
  uint32_t original_length = 0;
  std::vector<uint8_t> head;  // first bytes of the frame
  ParsedFrame parsed;
  PortRecord port;
  Obstacle obstacle = Obstacle::kNone;
  uint32_t link_type = kLinkTypeEthernet;
  std::vector<Answer> answers;
  std::vector<ClientKey> keys;  // none, one, or more when the module's answers fit several
  std::vector<BudgetStep> budgets;
  Outcome outcome;
  std::optional<uint64_t> sequence;  // of the header in front of what was delivered
  std::optional<SwitchNeed> need;
  std::vector<WhatIf> what_if;  // each setting whose change changes the outcome
  size_t settings_tried = 0;
  std::vector<std::string> trace;  // the module's own diagnostic lines
};

// Replays up to the frame and tells its story. Throws InputError when the file has no such frame.
Story Explain(platform::Module& module, const Config& config, const ReplayOptions& replay, uint64_t frame);

std::string FormatStory(const Story& story, int depth);
std::string StoryJson(const Story& story);

}  // namespace vex::host
