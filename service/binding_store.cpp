// binding_store.cpp - the file of bindings: replaced as a whole, read no further than it can be used.
// In:  a path. Out: the file written, or its bindings; what failed, with the file's name.
#include "service/binding_store.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "service/atomic_file.h"

namespace vex::service {

std::string SaveBindings(const std::string& path, std::span<const Binding> bindings) {
  return SaveBindings(path, bindings, SystemFiles());
}

std::string SaveBindings(const std::string& path, std::span<const Binding> bindings, FileOps& ops) {
  return ReplaceFile(path, FormatBindings(bindings), ops);
}

LoadedBindings LoadBindings(const std::string& path, size_t max_bindings) {
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  LoadedBindings loaded;
  if (!file) {
    loaded.missing = errno == ENOENT;
    if (!loaded.missing)
      loaded.problems.push_back(fmt::format("{}: cannot open: {}", path, std::strerror(errno)));
    return loaded;
  }
  // A file of any size is looked at no further than the bindings that can be kept.
  const size_t limit = (max_bindings + 2) * kMaxBindingLine;
  std::string text;
  std::array<char, 65536> chunk;
  while (text.size() < limit && (file.read(chunk.data(), chunk.size()), file.gcount() > 0))
    text.append(chunk.data(), static_cast<size_t>(file.gcount()));
  if (file.bad()) loaded.problems.push_back(fmt::format("{}: cannot read: {}", path, std::strerror(errno)));
  if (!loaded.problems.empty()) return loaded;
  return ParseBindings(text, path, max_bindings);
}

}  // namespace vex::service
