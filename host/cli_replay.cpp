// cli_replay.cpp - "vexhost replay": capture files through the module, a report or JSON lines out.
// In:  the options. Out: text on stdout, problems on stderr, the exit code.
#include <fmt/format.h>

#include <filesystem>
#include <functional>
#include <memory>

#include "host/cli.h"
#include "host/cli_against.h"
#include "host/error.h"
#include "host/json_lines.h"
#include "host/progress.h"
#include "host/refused_writer.h"
#include "host/replay.h"
#include "host/report.h"
#include "host/session.h"

namespace vex::host {
namespace {

void Print(const std::string& text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0)
    throw InputError("the report could not be written to standard output");
}

ReportHead HeadOf(const ReplayCommand& command, const Config& config) {
  return {command.files.size() == 1 ? command.files.front() : fmt::format("{} files", command.files.size()),
          command.module.config_path, config.capabilities.instances};
}

int ExitCodeOf(const ReplayTotals& totals) {
  for (const CaptureError& error : totals.errors) fmt::print(stderr, "vexhost: {}\n", error.Message());
  bool adds_up = totals.IdentityHolds();
  for (const ScopeTally& tally : totals.scopes) adds_up &= tally.Balanced();
  if (!adds_up) {
    fmt::print(stderr, "vexhost: the numbers do not add up: {}\n", FormatIdentity(totals));
    return kExitIdentity;
  }
  return totals.errors.empty() ? kExitOk : kExitBadInput;
}

// The file for the refused frames; never one that is being read.
std::unique_ptr<RefusedWriter> OpenRefused(const ReplayCommand& command) {
  if (command.write_refused.empty()) return nullptr;
  for (const std::string& file : command.files) {
    std::error_code error;
    if (std::filesystem::equivalent(file, command.write_refused, error) && !error)
      throw InputError(
          fmt::format("--write-refused {}: that is a capture to be read", command.write_refused));
  }
  return std::make_unique<RefusedWriter>(command.write_refused);
}

int Replay(const ReplayCommand& command) {
  if (!command.against.empty()) return ReplayAgainst(command);
  const Config config = ConfigOf(command.module);
  Session session(ModulePath(command.module), config);
  const auto refused = OpenRefused(command);
  if (!session.active())
    fmt::print(stderr, "vexhost: the module stays inactive on board {}: no frame is presented\n",
               config.board);
  JsonLines json(stdout);
  Progress progress(!command.quiet);
  ReplayOptions options;
  options.files = command.files;
  options.filter = command.filter;
  options.port_by = command.port_by;
  options.ports = config.ports;
  options.configure = [&session] { session.Configure(); };
  if (command.json) options.sink = &json;
  if (progress.enabled())
    options.progress = [&progress](const ReplayProgress& p) {
      progress.Update(p.bytes_done, p.bytes_total, p.frames);
    };
  if (refused) options.on_refused = std::bind_front(&RefusedWriter::Add, refused.get());
  const ReplayTotals totals = RunReplay(session.module(), options);
  if (refused) refused->Finish();
  progress.Clear();
  if (command.json) {
    json.Summary(totals);
    json.Finish();
  } else if (!command.quiet && (totals.frames != 0 || totals.errors.empty())) {
    Print(FormatReport(HeadOf(command, config), totals));
  }
  const int code = ExitCodeOf(totals);
  return session.Close() == 0 ? code : kExitIdentity;
}

}  // namespace

void AddReplayCommand(CLI::App& app, Action& action) {
  CLI::App* command =
      app.add_subcommand("replay", "Feeds capture files through the module on the captures' own time");
  const auto options = std::make_shared<ReplayCommand>();
  command
      ->add_option("FILE", options->files, "pcap or pcapng files, one after the other; - is standard input")
      ->required();
  AddModuleOptions(*command, options->module);
  AddPortBy(*command, options->port_by);
  command->add_option("--filter", options->filter, "only frames that match this tcpdump expression")
      ->option_text("EXPR");
  command->add_flag("--json", options->json, "one JSON object per frame and report, a summary last");
  command->add_flag("--quiet", options->quiet, "no report and no progress bar");
  CLI::Option* refused = command
                             ->add_option("--write-refused", options->write_refused,
                                          "the refused frames, with the reason as comment")
                             ->option_text("FILE.pcapng");
  command->add_option("--against", options->against, "a second configuration: what would it have changed?")
      ->option_text("OTHER.toml")
      ->excludes(refused);
  command->footer(
      "Examples:\n"
      "  vexhost replay captures/access-ports.pcapng\n"
      "  vexhost replay --config examples/access-switch.toml captures/flood-and-client.pcapng\n"
      "  vexhost replay --instances 2 --filter 'udp port 67 or udp port 68' --json day.pcap\n"
      "  vexhost replay --switches 0x1013 --port-by mac day.pcap\n"
      "  vexhost replay --config examples/access-switch.toml --against new.toml day.pcap\n"
      "Options override the configuration files.");
  command->callback([options, &action] { action = [options] { return Replay(*options); }; });
}

}  // namespace vex::host
