// findings.cpp - the list of misuse: see findings.h.
// In:  lines from any thread. Out: the lines in order. Bounded, so that a fault in a loop cannot eat the
// memory.
#include "platform/findings.h"

#include <mutex>
#include <utility>

namespace vex::platform {
namespace {

constexpr size_t kMostFindings = 1000;

struct List {
  std::mutex mutex;
  std::vector<std::string> lines;
};

List& TheList() {
  static List* const list = new List;
  return *list;
}

}  // namespace

void ReportFinding(std::string text) {
  List& list = TheList();
  const std::lock_guard lock(list.mutex);
  if (list.lines.size() < kMostFindings) list.lines.push_back(std::move(text));
}

std::vector<std::string> PeekFindings() {
  List& list = TheList();
  const std::lock_guard lock(list.mutex);
  return list.lines;
}

std::vector<std::string> TakeFindings() {
  List& list = TheList();
  const std::lock_guard lock(list.mutex);
  return std::exchange(list.lines, {});
}

}  // namespace vex::platform
