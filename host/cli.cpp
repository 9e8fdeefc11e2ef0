// cli.cpp - parses the line, runs the subcommand, turns every failure into one line and an exit code.
#include "host/cli.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <optional>
#include <vector>

#include "host/error.h"
#include "host/settings.h"
#include "platform/module_loader.h"

#ifndef VEX_VERSION
#define VEX_VERSION "unknown"
#endif

namespace vex::host {
namespace {

constexpr uint64_t kMaxU32 = 0xFFFFFFFF;

// Decimal, or hexadecimal behind 0x.
std::optional<uint64_t> ParseNumber(std::string_view text) {
  const bool hex = text.starts_with("0x") || text.starts_with("0X");
  if (hex) text.remove_prefix(2);
  uint64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, hex ? 16 : 10);
  if (text.empty() || error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return value;
}

std::vector<std::string> NamesOf(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; }))
    names.push_back(sub->get_name());
  for (const CLI::Option* option : app.get_options())
    for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
  return names;
}

// "unknown option --instnces, the nearest is --instances". Names come with their subcommand's help.
std::string UnknownArgument(const CLI::App& app, std::string_view argument) {
  const auto names = NamesOf(app);
  const std::vector<std::string_view> candidates(names.begin(), names.end());
  if (app.get_parent() != nullptr && !argument.starts_with('-'))
    return fmt::format("\"{}\" is an argument too many", argument);
  const std::string_view word = argument.substr(0, argument.find('='));
  return fmt::format("unknown {} \"{}\", the nearest is {}", word.starts_with('-') ? "option" : "command",
                     word, Nearest(word, candidates));
}

const CLI::App& Chosen(const CLI::App& app) {
  const auto chosen = app.get_subcommands();
  return chosen.empty() ? app : *chosen.front();
}

std::string OneLine(std::string text) {
  std::replace(text.begin(), text.end(), '\n', ' ');
  return text;
}

int Usage(const CLI::App& app, const std::string& what) {
  const CLI::App& chosen = Chosen(app);
  const std::string name = &chosen == &app ? "vexhost" : "vexhost " + chosen.get_name();
  fmt::print(stderr, "vexhost: {}; see {} --help\n", OneLine(what), name);
  return kExitBadInput;
}

// Answers the exit code when the line ends the program by itself (help, version, misuse).
std::optional<int> Parse(CLI::App& app, int argc, const char* const* argv) {
  try {
    app.parse(argc, argv);
    return std::nullopt;
  } catch (const CLI::Success& success) {  // --help, --version
    return app.exit(success);
  } catch (const CLI::ExtrasError&) {
    const CLI::App& chosen = Chosen(app);
    const auto extras = app.remaining(true);
    return Usage(app, extras.empty() ? "an argument too many" : UnknownArgument(chosen, extras.front()));
  } catch (const CLI::RequiredError& error) {
    if (!app.get_subcommands().empty()) return Usage(app, error.what());
    return Usage(app, argc > 1 ? UnknownArgument(app, argv[1]) : "a command is missing");
  } catch (const CLI::ParseError& error) {
    return Usage(app, error.what());
  }
}

}  // namespace

CLI::Option* AddNumber(CLI::App& command, const std::string& name, const std::string& help, uint64_t min,
                       uint64_t max, const std::function<void(uint64_t)>& store) {
  return command.add_option_function<std::string>(
      name,
      [=](const std::string& text) {
        const auto value = ParseNumber(text);
        if (!value || *value < min || *value > max)
          throw CLI::ValidationError(
              fmt::format("{}: \"{}\" is not a whole number {} to {}", name, text, min, max));
        store(*value);
      },
      help);
}

void AddModuleOptions(CLI::App& command, ModuleOptions& options) {
  command
      .add_option("--config", options.config_path,
                  "TOML file with board, capabilities, switches, limits, ports")
      ->option_text("FILE");
  AddNumber(command, "--instances",
            "service instances: 1 to 4 spread the clients, others run one (default 4)", 0, kMaxU32,
            [&options](uint64_t n) { options.overrides.instances = static_cast<uint32_t>(n); })
      ->option_text("N");
  AddNumber(command, "--causeid-type", "scheme of the cause ids of access control (default 0)", 0, kMaxU32,
            [&options](uint64_t n) { options.overrides.causeid_type = static_cast<uint32_t>(n); })
      ->option_text("N");
  command.add_flag("--no-check-cfg", options.overrides.no_check_cfg,
                   "take DHCPv4 replies whatever the switches say");
  AddNumber(command, "--switches", "the sixteen switches as a bitmap, bit 0 is v4_req (default 0x7fff)", 0,
            0xFFFF, [&options](uint64_t n) { options.overrides.switches = static_cast<uint32_t>(n); })
      ->option_text("0xHHHH");
  command
      .add_option("--module", options.module_path,
                  "libvex_dhcp.so to run (default: the one that belongs to vexhost)")
      ->option_text("PATH");
}

void AddPortBy(CLI::App& command, PortBy& port_by) {
  command
      .add_option_function<std::string>(
          "--port-by",
          [&port_by](const std::string& text) {
            constexpr std::string_view kNames[] = {"interface", "mac", "vlan"};
            const auto found = std::find(std::begin(kNames), std::end(kNames), text);
            if (found == std::end(kNames))
              throw CLI::ValidationError(
                  fmt::format("--port-by: \"{}\" is none of interface, mac, vlan; the nearest is {}", text,
                              Nearest(text, kNames)));
            port_by = static_cast<PortBy>(found - std::begin(kNames));
          },
          "port of a frame: capture interface + 1, one per source MAC, or the outer VLAN tag")
      ->option_text("interface|mac|vlan");
}

int RunVexhost(int argc, const char* const* argv) {
  CLI::App app{"Runs the DHCP plug-in libvex_dhcp.so on a workstation: what would the device have done?",
               "vexhost"};
  app.set_version_flag("--version", "vexhost " VEX_VERSION);
  app.require_subcommand(1);
  app.get_formatter()->column_width(34);
  app.footer(
      "Examples:\n"
      "  vexhost replay captures/access-ports.pcapng\n"
      "  vexhost replay --config examples/access-switch.toml --json captures/*.pcapng\n"
      "  vexhost explain captures/flood-and-client.pcapng --frame 2000 --config examples/access-switch.toml\n"
      "\nExit codes: 0 done; 2 bad usage, configuration or capture; 3 the numbers do not add up.");
  Action action;
  AddReplayCommand(app, action);
  AddExplainCommand(app, action);
#ifdef VEX_LIVE
  AddRunCommand(app, action);
  AddCtlCommand(app, action);
#endif
  if (const auto code = Parse(app, argc, argv)) return *code;
  try {
    return action();
  } catch (const InputError& error) {
    fmt::print(stderr, "vexhost: {}\n", OneLine(error.what()));
  } catch (const platform::ModuleError& error) {
    fmt::print(stderr, "vexhost: {}\n", OneLine(error.what()));
  } catch (const std::exception& error) {
    fmt::print(stderr, "vexhost: {}\n", OneLine(error.what()));
  }
  return kExitBadInput;
}

}  // namespace vex::host
