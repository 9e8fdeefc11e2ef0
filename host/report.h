// report.h - the one-screen report of a replay.
// In:  the totals of a replay. Out: text of at most 100 columns; the same totals gives the same bytes,
// whatever the locale.
#pragma once

#include <string>

#include "host/replay.h"

namespace vex::host {

struct ReportHead {
  std::string source;  // "captures/a.pcapng" or "3 files"
  std::string config;  // the configuration file, "" for the defaults
  uint32_t instances = 0;
};

std::string FormatReport(const ReportHead& head, const ReplayTotals& totals);

// The identity, e.g. "frames 8818 = 0 not presented + ... : holds"
std::string FormatIdentity(const ReplayTotals& totals);

}  // namespace vex::host
