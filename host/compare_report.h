// compare_report.h - what another configuration would have changed: one screen of text, or JSON lines.
// In:  a comparison and its changed frames. Out: text; JSON objects one per changed frame, a summary last.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/compare.h"

namespace vex::host {

struct CompareHead {
  std::string source;  // "captures/a.pcapng" or "3 files"
  std::string a, b;    // the configurations, "defaults" when there is no file
};

// Keeps the first changed frames for the screen; the rest is counted.
class ChangeList {
 public:
  static constexpr size_t kShown = 20;
  void Add(const ChangedFrame& frame);
  const std::vector<std::vector<std::string>>& rows() const { return rows_; }

 private:
  std::vector<std::vector<std::string>> rows_;
};

std::string FormatComparison(const CompareHead& head, const Comparison& sums, const ChangeList& list);

// {"file":…,"frame":…,"time":…,"port":…,"vlan":…,"app_type":…,"changed":[…],"a":{…},"b":{…}}
std::string ChangeJson(const ChangedFrame& frame);
// {"summary":{"frames":…,"changed":…,"verdict":…,…,"a":{…},"b":{…}}}
std::string CompareSummaryJson(const Comparison& sums);

}  // namespace vex::host
