// fuzz_bindings.cpp - any text as a file of bindings: what is intact, and a line for what is not.
#include <string_view>

#include "fuzz/module_fixture.h"
#include "service/binding_store.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace vex;
  const auto loaded = service::ParseBindings({reinterpret_cast<const char*>(data), size}, "fuzz", 1000);
  fuzz::Require(loaded.bindings.size() <= 1000, "the bound holds");
  const std::string again = service::FormatBindings(loaded.bindings);
  const auto second = service::ParseBindings(again, "fuzz", 1000);
  fuzz::Require(second.problems.empty(), "what was loaded can be saved and loaded");
  fuzz::Require(second.bindings.size() == loaded.bindings.size(), "nothing is lost on the way");
  return 0;
}
