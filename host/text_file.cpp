// text_file.cpp - see text_file.h.
#include "host/text_file.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "host/error.h"

namespace vex::host {

std::string ReadTextFile(const std::string& path, size_t most, std::string_view what) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"), &std::fclose);
  if (!file) throw InputError(fmt::format("{}: cannot open: {}", OneLine(path), std::strerror(errno)));
  std::string text;
  std::array<char, 4096> part;
  while (const size_t got = std::fread(part.data(), 1, part.size(), file.get())) {
    text.append(part.data(), got);
    if (text.size() > most)
      throw InputError(fmt::format("{}: larger than {} bytes, not {}", OneLine(path), most, what));
  }
  if (std::ferror(file.get()) != 0)
    throw InputError(fmt::format("{}: cannot read: {}", OneLine(path), std::strerror(errno)));
  return text;
}

std::string OneLine(std::string_view text) {
  std::string line;
  for (const char c : text.substr(0, 200)) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7F)
      line += fmt::format("\\x{:02x}", byte);
    else
      line += c;
  }
  return line;
}

}  // namespace vex::host
