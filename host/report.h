// report.h - the one-screen report of a replay.
// In:  a Tally. Out: text of at most 100 columns; the same tally gives the same bytes, whatever the locale.
#pragma once

#include <string>

#include "host/tally.h"

namespace vex::host {

struct ReportHead {
  std::string source;  // "captures/a.pcapng" or "3 files"
  std::string config;  // the configuration file, "" for the defaults
};

std::string FormatReport(const ReportHead& head, const Tally& tally);

// The identity, e.g. "frames 8818 = 0 not presented + ... : holds"
std::string FormatIdentity(const Tally& tally);

}  // namespace vex::host
