// session.h - one module brought up under one configuration, and taken down again.
// In:  a checked configuration, the path of the library. Out: the running module; requests pushed on demand.
// The platform's board, capabilities and module are process-wide: one Session at a time.
#pragma once

#include <memory>
#include <string>

#include "host/config.h"
#include "host/options.h"
#include "platform/module_loader.h"

namespace vex::host {

// The file that the options name, or the defaults, with the overrides applied. Throws InputError.
Config ConfigOf(const ModuleOptions& options);

// The library that the options name, or the one that belongs to this program: next to it in a build directory
// (bin/../lib) or where both are installed. Throws InputError naming the places looked at.
std::string ModulePath(const ModuleOptions& options);

class Session {
 public:
  // Throws InputError when the library cannot be loaded or does not start.
  // lcores: forwarding threads of the framework; 0: the caller is the only one.
  Session(const std::string& module_path, const Config& config, size_t lcores = 0);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  platform::Module& module() { return *module_; }
  // False: the module found the board foreign and does nothing; there is nothing to configure then.
  bool active() const { return active_; }
  // From `from` to the configuration's settings, through the handlers. Throws InputError for a refused
  // request.
  void Configure(const service::Settings& from = {});
  // Unloads, and writes to stderr what the module or the host did not give back. Answers how much that was.
  size_t Close();

 private:
  Config config_;
  std::unique_ptr<platform::Module> module_;
  bool active_ = false;
};

}  // namespace vex::host
