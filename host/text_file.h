// text_file.h - text that people write: a small file as a whole, and any part of it in a message.
// In:  a path, or text of any bytes. Out: the content, or InputError with the path and what failed; one line.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vex::host {

// `what` the file should be is named when it holds more than `most` bytes.
std::string ReadTextFile(const std::string& path, size_t most, std::string_view what);

// The first 200 bytes with control characters as \x and two digits: an error is one line whatever it quotes.
std::string OneLine(std::string_view text);

}  // namespace vex::host
