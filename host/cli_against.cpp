// cli_against.cpp - one process per configuration, their fates compared here.
// In:  the replay command with a second configuration file; options override both files. Out: text or JSON
// lines on stdout, problems on stderr.
#include "host/cli_against.h"

#include <fmt/format.h>

#include <cstdio>
#include <filesystem>

#include "host/compare.h"
#include "host/compare_report.h"
#include "host/error.h"
#include "host/progress.h"
#include "host/session.h"

namespace vex::host {
namespace {

struct Side {
  std::string name;
  Config config;
};

Side SideOf(const ReplayCommand& command, const std::string& config_path) {
  ModuleOptions options = command.module;
  options.config_path = config_path;
  return {config_path.empty() ? "the defaults" : config_path, ConfigOf(options)};
}

// In the child: a session of its own, from start to end.
void RunSide(const ReplayCommand& command, const std::string& module_path, const Side& side,
             ReplayProcess::Sender& sender) {
  Session session(module_path, side.config);
  ReplayOptions options;
  options.files = command.files;
  options.filter = command.filter;
  options.port_by = command.port_by;
  options.ports = side.config.ports;
  options.configure = [&session] { session.Configure(); };
  options.sink = &sender;
  options.ask_channel = false;
  options.progress = [&sender](const ReplayProgress& progress) { sender.Progress(progress); };
  const ReplayTotals totals = RunReplay(session.module(), options);
  bool adds_up = totals.IdentityHolds();
  for (const ScopeTally& tally : totals.scopes) adds_up &= tally.Balanced();
  sender.Totals(totals, session.Close() == 0 && adds_up);
}

void CheckReadableTwice(const std::vector<std::string>& files) {
  for (const std::string& file : files) {
    std::error_code error;
    const auto status = std::filesystem::status(file, error);
    if (file == "-" || (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status))) {
      throw InputError(
          fmt::format("{}: --against reads every capture twice, so it must be a regular file", file));
    }
  }
}

int ExitCodeOf(const Comparison& sums) {
  for (const CaptureError& error : sums.a.errors) fmt::print(stderr, "vexhost: {}\n", error.Message());
  if (sums.a.totals.adds_up == 0 || sums.b.totals.adds_up == 0) {
    fmt::print(stderr, "vexhost: the numbers of {} do not add up; replay it alone to see them\n",
               sums.a.totals.adds_up == 0 ? "A" : "B");
    return kExitIdentity;
  }
  return sums.a.errors.empty() ? kExitOk : kExitBadInput;
}

}  // namespace

int ReplayAgainst(const ReplayCommand& command) {
  CheckReadableTwice(command.files);
  const Side a = SideOf(command, command.module.config_path), b = SideOf(command, command.against);
  const std::string module_path = ModulePath(command.module);
  const auto job = [&](const Side& side) {
    return [&](ReplayProcess::Sender& sender) { RunSide(command, module_path, side, sender); };
  };
  ReplayProcess process_a(a.name, job(a)), process_b(b.name, job(b));
  ChangeList list;
  std::string line;
  const auto on_changed = [&](const ChangedFrame& frame) {
    if (!command.json) return list.Add(frame);
    line = ChangeJson(frame);
    std::fwrite(line.data(), 1, line.size(), stdout);
  };
  Progress progress(!command.quiet);
  const Comparison sums = Compare(process_a, process_b, on_changed, [&progress](const ReplayProgress& p) {
    progress.Update(p.bytes_done, p.bytes_total, p.frames);
  });
  progress.Clear();
  if (command.json) {
    fmt::print("{}", CompareSummaryJson(sums));
  } else if (!command.quiet && (sums.frames != 0 || sums.a.errors.empty())) {
    const std::string source =
        command.files.size() == 1 ? command.files.front() : fmt::format("{} files", command.files.size());
    fmt::print("{}", FormatComparison({source, a.name, b.name}, sums, list));
  }
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    throw InputError("the comparison could not be written to standard output");
  }
  return ExitCodeOf(sums);
}

}  // namespace vex::host
