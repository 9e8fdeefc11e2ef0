// fuzz_control.cpp - any bytes as a request on the control socket; a set request goes on to the setting it
// names. In:  one line. Out: a request whose form is right, or an error on one line; a configuration that
// changed only where the request was accepted; or an abort.
#include "fuzz/input.h"
#include "host/error.h"
#include "host/live/control_request.h"
#include "host/live/set_value.h"
#include "host/settings.h"

namespace {

using namespace vex;
using fuzz::Require;

host::Config TwoPorts() {
  host::Config config;
  config.ports.resize(2);
  config.ports[0].index = 1, config.ports[0].name = "p1";
  config.ports[1].index = 2, config.ports[1].name = "eth0.30";
  return config;
}

// What was set can be read from where the table says it is.
void RequireReadable(const host::Config& config, std::string_view key) {
  if (key.starts_with("port.") || key.starts_with("live.")) return;
  const host::SettingRef ref = host::ResolveSetting(key);
  for (const uint32_t value : ref.setting->get(*ref.setting, config, ref.key))
    Require(value >= ref.setting->min && value <= ref.setting->max, "a setting lies in its range");
}

void Apply(const host::live::SetRequest& request) {
  static const host::Config kBefore = TwoPorts();
  host::Config config = kBefore;
  try {
    host::live::SetByName(config, request.key, request.value);
    host::Config again = config;
    host::live::SetByName(again, request.key, request.value);
    Require(again == config, "setting a value twice is setting it once");
    RequireReadable(config, request.key);
  } catch (const host::InputError& error) {
    Require(config == kBefore, "a refused value changes nothing");
    Require(error.what()[0] != '\0', "an error says what is wrong");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace host::live;
  const Request request = ParseRequest({data, size});
  if (const auto* error = std::get_if<RequestError>(&request))
    Require(!error->what.empty(), "an error says what is wrong");
  if (const auto* set = std::get_if<SetRequest>(&request)) Apply(*set);
  return 0;
}
