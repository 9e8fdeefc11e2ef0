// binding_codec.h - bindings as text: the form in which they are kept in a file.
// In:  bindings. Out: one line per record, and back from any bytes: the intact bindings, with a line for each
// damaged one. Each line is "CRC32 JSON": eight hexadecimal digits, a space, an object whose bytes the
// checksum covers. First the head {"bindings":N,"format":"vex-bindings","version":1}, then N bindings.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "service/binding.h"

namespace vex::service {

struct LoadedBindings {
  std::vector<Binding> bindings;  // intact and unexpired or not: the caller judges the time
  std::vector<std::string>
      problems;          // "FILE:LINE: what is wrong"; at most kMaxProblems and a last one counting the rest
  bool missing = false;  // there is no such file: a first start, no problem
  static constexpr size_t kMaxProblems = 20;
};

inline constexpr size_t kMaxBindingLine = 1024;  // the longest that FormatBindings makes is below 600 bytes

std::string FormatBindings(std::span<const Binding> bindings);
// Any bytes; `name` is the file's name for the problems. Reads at most max_bindings.
LoadedBindings ParseBindings(std::string_view text, std::string_view name, size_t max_bindings);

}  // namespace vex::service
