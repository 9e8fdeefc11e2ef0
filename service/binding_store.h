// binding_store.h - bindings on disk, so that they survive a restart.
// In:  a snapshot of the table. Out: a file that is either the old or the new one whatever moment the machine
// stops, and back: the intact bindings, with a line for each damaged one. Format: text, one line per record,
// each "CRC32 JSON": eight hexadecimal digits, a space, an object whose bytes the checksum covers. First the
// head {"bindings":N,"format":"vex-bindings","version":1}, then N bindings.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "service/binding.h"

namespace vex::service {

class FileOps;

struct LoadedBindings {
  std::vector<Binding> bindings;  // intact and unexpired or not: the caller judges the time
  std::vector<std::string>
      problems;          // "FILE:LINE: what is wrong"; at most kMaxProblems and a last one counting the rest
  bool missing = false;  // there is no such file: a first start, no problem
  static constexpr size_t kMaxProblems = 20;
};

std::string FormatBindings(std::span<const Binding> bindings);
// Any bytes; `name` is the file's name for the problems. Reads at most max_bindings.
LoadedBindings ParseBindings(std::string_view text, std::string_view name, size_t max_bindings);

// Empty: saved. Otherwise what failed, with the file's name and what to do; the old file is then still in
// place.
std::string SaveBindings(const std::string& path, std::span<const Binding> bindings);
std::string SaveBindings(const std::string& path, std::span<const Binding> bindings, FileOps& ops);
LoadedBindings LoadBindings(const std::string& path, size_t max_bindings);

}  // namespace vex::service
