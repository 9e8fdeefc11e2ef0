// fuzz_control.cpp - any bytes as a request on the control socket.
#include "fuzz/module_fixture.h"
#include "host/live/control_request.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace vex::host::live;
  const Request request = ParseRequest({data, size});
  if (const auto* error = std::get_if<RequestError>(&request)) {
    vex::fuzz::Require(!error->what.empty(), "an error says what is wrong");
  }
  return 0;
}
