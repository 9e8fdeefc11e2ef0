// cli_explain.cpp - "vexhost explain": the story of one frame.
// In:  the options. Out: the story on stdout, problems on stderr, the exit code.
#include <fmt/format.h>

#include <cstdio>
#include <limits>
#include <memory>

#include "host/cli.h"
#include "host/error.h"
#include "host/explain.h"
#include "host/progress.h"
#include "host/session.h"

namespace vex::host {
namespace {

int RunExplain(const ExplainCommand& command) {
  const Config config = ConfigOf(command.module);
  Session session(ModulePath(command.module), config);
  Progress progress(true);
  ReplayOptions replay;
  replay.files = {command.file};
  replay.port_by = command.port_by;
  replay.ports = config.ports;
  replay.configure = [&session] { session.Configure(); };
  if (progress.enabled())
    replay.progress = [&progress](const ReplayProgress& p) {
      progress.Update(p.bytes_done, p.bytes_total, p.frames);
    };
  const Story story = Explain(session.module(), config, replay, command.frame);
  progress.Clear();
  const std::string text = command.json ? StoryJson(story) : FormatStory(story, command.depth);
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0)
    throw InputError("the story could not be written to standard output");
  return session.Close() == 0 ? kExitOk : kExitIdentity;
}

}  // namespace

void AddExplainCommand(CLI::App& app, Action& action) {
  CLI::App* command =
      app.add_subcommand("explain", "Tells the story of one frame and which setting would have changed it");
  const auto options = std::make_shared<ExplainCommand>();
  command->add_option("FILE", options->file, "pcap or pcapng file; - is standard input")->required();
  AddNumber(*command, "--frame", "number of the frame in the file, from 1", 1,
            std::numeric_limits<uint64_t>::max(), [options](uint64_t n) { options->frame = n; })
      ->required()
      ->option_text("N REQUIRED");
  AddNumber(*command, "--depth",
            "1 one line, 2 the story (default), 3 everything, with the module's own trace", 1, 3,
            [options](uint64_t n) { options->depth = static_cast<int>(n); })
      ->option_text("1|2|3");
  AddModuleOptions(*command, options->module);
  AddPortBy(*command, options->port_by);
  command->add_flag("--json", options->json, "one JSON object");
  command->footer(
      "Everything before the frame is replayed, so the budgets are in the state they had.\n"
      "Examples:\n"
      "  vexhost explain captures/flood-and-client.pcapng --frame 2000 --config examples/access-switch.toml\n"
      "  vexhost explain day.pcap --frame 17 --depth 3 --instances 2");
  command->callback([options, &action] { action = [options] { return RunExplain(*options); }; });
}

}  // namespace vex::host
