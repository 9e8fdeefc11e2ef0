// cli_ctl.cpp - "vexhost ctl": asks a running switch, or tells it something.
// In:  words. Out: tables or JSON on standard output; exit code 2 and one line when the switch refuses.
#include "host/cli.h"
#include "host/live/ctl.h"
#include "host/live/run.h"

namespace vex::host {

void AddCtlCommand(CLI::App& app, Action& action) {
  const auto options = std::make_shared<CtlCommand>();
  options->socket = live::kDefaultSocket;
  CLI::App& ctl = *app.add_subcommand("ctl", "ask or change a switch that runs");
  ctl.add_option("WORDS", options->words, "what to do, see below")->required();
  ctl.add_option("--socket", options->socket,
                 std::string("its control socket (default ") + live::kDefaultSocket + ")")
      ->option_text("PATH");
  ctl.add_flag("--json", options->json, "JSON instead of tables");
  ctl.add_option("--watch", options->watch_seconds, "show again every N seconds until interrupted")
      ->check(CLI::Range(0.1, 86400.0))
      ->option_text("N");
  ctl.footer(
      "What to do:\n"
      "  show summary|ports|limits|bindings|switches|channels|stats|stations\n"
      "  set KEY VALUE        KEY as the configuration file spells it: snooping.interface.1.v4.rate\n"
      "  reload               read the configuration file again; wholly or not at all\n"
      "  trace on PORT|MAC    name frames and what the module says of them in the switch's log\n"
      "  trace off\n"
      "  save                 write the bindings now");
  ctl.callback([&action, options] { action = [options] { return live::RunCtl(*options); }; });
}

}  // namespace vex::host
