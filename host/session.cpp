// session.cpp - capabilities and board first, then the module, then its configuration.
#include "host/session.h"

#include <fmt/format.h>
#include <unistd.h>

#include <filesystem>
#include <vector>

#include "host/error.h"
#include "platform/board.h"
#include "platform/platform.h"
#include "service/configure.h"

#ifndef VEX_INSTALL_LIBDIR
#define VEX_INSTALL_LIBDIR "lib"
#endif

namespace vex::host {
namespace {

constexpr const char* kLibrary = "libvex_dhcp.so";

void AnswerQueries(const Config& config) {
  platform::Board& board = platform::TheBoard();
  board.SetType(config.board);
  board.SetCapability("DHCP_MULTICORE_SVC_NUM", config.capabilities.instances);
  board.SetCapability("DHCP_CAUSID_TYPE", config.capabilities.causeid_type);
  board.SetCapability("DHCP_FEATURE_SUPP_NO_CHECK_CFG_PROC_PKT", config.capabilities.no_check_cfg);
  board.SetCapability("DHCP_MLAG_IPV4_PKT_RATE", config.capabilities.mlag_v4_rate);
  board.SetCapability("DHCP_MLAG_IPV6_PKT_RATE", config.capabilities.mlag_v6_rate);
}

}  // namespace

Config ConfigOf(const ModuleOptions& options) {
  Config config = options.config_path.empty() ? Config{} : LoadConfig(options.config_path);
  ApplyOverrides(options.overrides, config);
  return config;
}

std::string ModulePath(const ModuleOptions& options) {
  namespace fs = std::filesystem;
  std::error_code error;
  if (!options.module_path.empty()) {
    if (!fs::is_regular_file(options.module_path, error))
      throw InputError(fmt::format("--module {}: no such file", options.module_path));
    return fs::absolute(options.module_path, error).string();
  }
  const fs::path program = fs::read_symlink("/proc/self/exe", error);
  if (error) return kLibrary;  // no /proc in this root: the loader looks in its own places
  std::vector<std::string> tried;
  for (const char* libdir : {"lib", VEX_INSTALL_LIBDIR}) {
    const fs::path path = (program.parent_path() / ".." / libdir / kLibrary).lexically_normal();
    if (fs::is_regular_file(path, error)) return path.string();
    if (tried.empty() || tried.back() != path) tried.push_back(path.string());
  }
  throw InputError(fmt::format("{} is not at {}: build or install it, or name it with --module PATH",
                               kLibrary, fmt::join(tried, " nor at ")));
}

Session::Session(const std::string& module_path, const Config& config, size_t lcores) : config_(config) {
  AnswerQueries(config);
  try {
    module_ = platform::Module::Load(module_path, {.lcores = lcores, .optionalDirs = {}});
  } catch (const platform::ModuleError& failure) {
    throw InputError(failure.what());
  }
  if (module_->InitResult() != 0)
    throw InputError(fmt::format("{}: the module's start-up failed (DhcpVexInit answered {})", module_path,
                                 module_->InitResult()));
  active_ = !platform::TheBoard().RpcServices().empty();
}

Session::~Session() = default;

void Session::Configure(const service::Settings& from) {
  if (!active_) return;
  const auto requests = service::RequestsBetween(from, config_.module);
  const size_t accepted = service::Send(*module_, requests);
  if (accepted != requests.size())
    throw InputError(fmt::format("the module refused the request {}", service::Describe(requests[accepted])));
}

size_t Session::Close() {
  // The store has no way to clear itself: its records go when everything is back at the defaults.
  if (active_) service::Send(*module_, service::RequestsBetween(config_.module, {}));
  module_.reset();
  const auto lines = platform::Audit();
  for (const std::string& line : lines) fmt::print(stderr, "vexhost: not given back: {}\n", line);
  return lines.size();
}

}  // namespace vex::host
