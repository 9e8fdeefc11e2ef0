// json_lines.h - the replay as JSON Lines: one object per frame and per report, a summary object last.
// In:  outcomes, events, the totals. Out: bytes on a FILE, buffered, written in pieces of 64 KiB.
// vlan is the VLAN id of the outer tag, 0 when untagged. channel is null for none. Every line is valid JSON
// in UTF-8 whatever bytes a file name holds (foreign bytes become U+FFFD).
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

#include <fmt/format.h>

#include "host/replay.h"

namespace vex::host {

// `text` as a JSON string with its quotes.
std::string JsonString(std::string_view text);

class JsonLines final : public ReplaySink {
 public:
  explicit JsonLines(std::FILE* out) : out_(out) {}
  ~JsonLines() override;  // flushes, ignoring failure; call Finish() to learn of one
  JsonLines(const JsonLines&) = delete;
  JsonLines& operator=(const JsonLines&) = delete;

  void OnFrame(const FrameOutcome& outcome) override;
  void OnEvent(const ReplayEvent& event) override;
  void Summary(const ReplayTotals& totals);
  // Writes what is left. Throws InputError when the output could not be written (disk full, closed pipe).
  void Finish();

 private:
  void Spill();
  void SetFile(std::string_view file);

  std::FILE* out_;
  std::string file_;       // the file of the last line
  std::string file_json_;  // the same as JSON
  fmt::memory_buffer buffer_;
  bool failed_ = false;
};

}  // namespace vex::host
