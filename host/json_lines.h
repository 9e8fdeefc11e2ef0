// json_lines.h - the replay as JSON Lines: one object per frame and per report, a summary object last.
// In:  outcomes, events, the tally. Out: bytes on a FILE, buffered, written in pieces of 64 KiB.
// vlan is the VLAN id of the outer tag, 0 when untagged. channel is null for none. Every line is valid JSON
// in UTF-8 whatever bytes a file name holds (foreign bytes become U+FFFD).
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

#include <fmt/format.h>

#include "host/outcome.h"
#include "host/tally.h"

namespace vex::host {

// `text` as a JSON string with its quotes.
std::string JsonString(std::string_view text);

class JsonLines {
 public:
  explicit JsonLines(std::FILE* out) : out_(out) {}
  ~JsonLines();  // flushes, ignoring failure; call Finish() to learn of one
  JsonLines(const JsonLines&) = delete;
  JsonLines& operator=(const JsonLines&) = delete;

  void StartFile(const std::string& path);  // the base name goes into each line from here on
  void Frame(const FrameOutcome& outcome);
  void Event(const ReportEvent& event);
  void Summary(const Tally& tally);
  // Writes what is left. Throws InputError when the output could not be written (disk full, closed pipe).
  void Finish();

 private:
  void Spill();

  std::FILE* out_;
  std::string file_ = "\"\"";  // as JSON
  fmt::memory_buffer buffer_;
  bool failed_ = false;
};

}  // namespace vex::host
