// findings.h - what the stand-in noticed that a framework user must not do.
// In:  Report() from the pool, the ledger, the locks and the object tables, at the moment of the misuse.
// Out: lines for a person, kept in order until taken; the shutdown audit (platform.h) adds what leaked.
#pragma once

#include <string>
#include <vector>

namespace vex::platform {

void ReportFinding(std::string text);     // from any thread
std::vector<std::string> PeekFindings();  // a copy, in the order of the reports
std::vector<std::string> TakeFindings();  // the same, and forgets them

}  // namespace vex::platform
