// fuzz_toml.cpp - any text as a configuration file: a checked configuration or one line of error.
#include <string_view>

#include "fuzz/module_fixture.h"
#include "host/config.h"
#include "host/error.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  try {
    vex::host::ParseConfig({reinterpret_cast<const char*>(data), size}, "fuzz.toml");
  } catch (const vex::host::InputError& error) {
    const std::string_view what = error.what();
    vex::fuzz::Require(what.starts_with("fuzz.toml"), "an error names the file");
    vex::fuzz::Require(what.find('\n') == std::string_view::npos, "an error is one line");
  }
  return 0;
}
