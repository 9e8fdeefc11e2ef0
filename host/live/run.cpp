// run.cpp - composes the configuration, opens everything, waits for signals and requests.
#include "host/live/run.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "host/error.h"
#include "host/live/controller.h"
#include "host/live/port_spec.h"
#include "host/live/rights.h"
#include "platform/logs.h"

namespace vex::host::live {
namespace {

constexpr long kTickNs = 200'000'000;
constexpr uint32_t kErrorLevel = 1;  // of the framework's log

void Log(std::string_view line) {
  const std::string text = fmt::format("vexhost: {}\n", line);  // one write, so that threads do not mix lines
  std::fwrite(text.data(), 1, text.size(), stderr);
}

Config Compose(const RunCommand& command) {
  Config config;
  if (command.module.config_path.empty()) {
    config.module = service::WithSwitches(kLiveSwitches);
  } else {
    config = LoadConfig(command.module.config_path);
  }
  ApplyOverrides(command.module.overrides, config);
  for (const std::string& port : command.ports) AddPort(config, port);
  if (!command.bindings.empty()) config.live.bindings = command.bindings;
  if (!command.socket.empty()) config.live.socket = command.socket;
  if (!command.metrics.empty()) config.live.metrics = command.metrics;
  if (command.threads != 0) config.live.threads = command.threads;
  return config;
}

// Signals as something to read, in every thread started later too.
int SignalFd() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals, signal);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
  return signalfd(-1, &signals, SFD_CLOEXEC);
}

int TimerFd() {
  const int fd = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
  const itimerspec period{.it_interval = {0, kTickNs}, .it_value = {0, kTickNs}};
  timerfd_settime(fd, 0, &period, nullptr);
  return fd;
}

// What the module reports as a failure of its own.
uint64_t LogModuleErrors() {
  return platform::Logs().AddSink(
      platform::MaskOf(platform::LogOutput::kFrameworkLog) | platform::MaskOf(platform::LogOutput::kAssert),
      [](const platform::LogRecord& record) {
        if (record.output == platform::LogOutput::kAssert) {
          Log(fmt::format("module: assertion at {}:{}", record.tag, record.level));
        } else if (record.level <= kErrorLevel) {
          Log(fmt::format("module: {}", record.text));
        }
      });
}

// Until a signal ends it.
void Wait(Runtime& runtime, Controller& controller, int signals) {
  const int timer = TimerFd();
  for (bool running = true; running;) {
    pollfd ready[] = {{signals, POLLIN, 0}, {timer, POLLIN, 0}, {controller.fd(), POLLIN, 0}};
    if (poll(ready, std::size(ready), -1) < 0) continue;
    if (ready[0].revents != 0) {
      signalfd_siginfo info{};
      if (read(signals, &info, sizeof info) == sizeof info) {
        if (info.ssi_signo == SIGHUP) {
          controller.Reload();
        } else {
          running = false;
        }
      }
    }
    if (ready[1].revents != 0) {
      uint64_t ticks = 0;
      if (read(timer, &ticks, sizeof ticks) > 0) runtime.Tick();
    }
    if (ready[2].revents != 0) controller.Serve();
  }
  close(timer);
}

void Announce(const Config& config, const Controller& controller) {
  for (const PortRecord& port : config.ports) {
    Log(fmt::format("port {} is index {}, untagged VLAN {}{}{}{}", port.name, port.index, UntaggedVlan(port),
                    port.trusted ? ", trusted" : "", port.management ? ", management" : "",
                    port.peer_link ? ", peer-link" : ""));
  }
  Log(fmt::format("ready: {} instances, control socket {}{}", config.capabilities.instances,
                  controller.path(),
                  config.live.metrics.empty() ? "" : ", metrics on " + config.live.metrics));
}

}  // namespace

int Run(const RunCommand& command) {
  const std::string module_path = ModulePath(command.module);
  const int signals = SignalFd();
  const uint64_t sink = LogModuleErrors();
  bool holds = false;
  {
    Runtime runtime(module_path, Compose(command), Log);
    Controller controller(
        runtime, [&command] { return Compose(command); }, Log);
    if (const std::string problem = DropRights(); !problem.empty()) Log("cannot give rights up: " + problem);
    runtime.Start();
    controller.OpenMetrics();
    Announce(runtime.config(), controller);
    Wait(runtime, controller, signals);
    runtime.Stop();
    const Snapshot closing = runtime.Take();
    fmt::print("{}", SummaryText(closing));
    std::fflush(stdout);
    holds = closing.IdentityHolds();
  }
  platform::Logs().RemoveSink(sink);
  close(signals);
  return holds ? kExitOk : kExitIdentity;
}

}  // namespace vex::host::live
