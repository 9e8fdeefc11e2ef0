// compare.cpp - two streams of fates in step.
#include "host/compare.h"

#include <fmt/format.h>

#include <vector>

#include "host/error.h"

namespace vex::host {
namespace {

void Count(const FrameFate& a, const FrameFate& b, const FateChange& change, Comparison& sums) {
  ++sums.moved[static_cast<size_t>(a.fate())][static_cast<size_t>(b.fate())];
  if (!change.any()) return;
  ++sums.changed;
  sums.verdict += change.verdict;
  sums.refused += change.refused;
  sums.instance += change.instance;
  sums.wanted += change.wanted;
  if (a.delivered != 0 && b.delivered != 0 && change.instance) ++sums.channels[{a.delivered, b.delivered}];
}

}  // namespace

Comparison Compare(ReplayProcess& a, ReplayProcess& b,
                   const std::function<void(const ChangedFrame&)>& on_changed,
                   const std::function<void(const ReplayProgress&)>& progress) {
  Comparison sums;
  while (true) {
    const FrameFate *left = a.Next(), *right = b.Next();
    if (left == nullptr && right == nullptr) break;
    if (left == nullptr || right == nullptr || left->frame != right->frame) {
      throw InputError("the captures changed between the two replays");
    }
    ++sums.frames;
    const FateChange change = Between(*left, *right);
    Count(*left, *right, change, sums);
    if (change.any() && on_changed) on_changed({a.file(), *left, *right, change});
    if (progress) progress({sums.frames, a.progress().bytes_done, a.progress().bytes_total});
  }
  sums.a = a.result();
  sums.b = b.result();
  return sums;
}

std::string ChangeNames(const FateChange& change, std::string_view separator) {
  std::vector<std::string_view> names;
  if (change.verdict) names.push_back("verdict");
  if (change.refused) names.push_back("refused");
  if (change.instance) names.push_back("instance");
  if (change.wanted) names.push_back("wanted");
  return fmt::format("{}", fmt::join(names, separator));
}

}  // namespace vex::host
