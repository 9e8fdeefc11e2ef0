// cli_run.cpp - "vexhost run": a DHCP-snooping switch on Linux ports.
// In:  the options. Out: what host/live/run.h does with them.
#include <fmt/format.h>

#include "host/cli.h"
#include "host/live/run.h"

namespace vex::host {

void AddRunCommand(CLI::App& app, Action& action) {
  const auto options = std::make_shared<RunCommand>();
  CLI::App& run = *app.add_subcommand("run", "be a DHCP-snooping switch on Linux interfaces");
  run.add_option("--port", options->ports,
                 "interface, with trusted, management, peer-link, vlan=N, index=N, cause=N")
      ->option_text("NAME[:OPTION,...]");
  AddModuleOptions(run, options->module);
  run.get_option("--switches")
      ->description(fmt::format(
          "the sixteen switches as a bitmap, bit 0 is v4_req (default {:#x}; 0x7fff with --config)",
          live::kLiveSwitches));
  run.add_option("--bindings", options->bindings, "file that keeps the bindings over a restart")
      ->option_text("FILE");
  run.add_option("--socket", options->socket,
                 std::string("control socket (default ") + live::kDefaultSocket + ")")
      ->option_text("PATH");
  run.add_option("--metrics", options->metrics, "serve Prometheus metrics there, like 127.0.0.1:9967")
      ->option_text("ADDRESS:PORT");
  AddNumber(run, "--threads", "receive threads, each with its share of the ports (default 1)", 1, 64,
            [options](uint64_t n) { options->threads = static_cast<uint32_t>(n); })
      ->option_text("N");
  run.footer(
      "Without --config the switches v4_req, v4_reply, v4_snooping, v6_req, v6_reply, v6_snooping and\n"
      "nd_snooping are on. Example:\n  vexhost run --port p1 --port p2 --port up0:trusted");
  run.callback([&action, options] { action = [options] { return live::Run(*options); }; });
}

}  // namespace vex::host
