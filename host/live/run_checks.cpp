// run_checks.cpp - see run_checks.h.
#include "host/live/run_checks.h"

#include <fmt/format.h>
#include <net/if.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <set>

#include "host/error.h"
#include "host/live/l2_switch.h"

namespace vex::host::live {

void CheckPorts(const Config& config) {
  if (config.ports.empty()) {
    throw InputError(
        "no port to run on: give --port INTERFACE, or [[port]] tables in the configuration file");
  }
  if (config.ports.size() > kMaxPorts) {
    throw InputError(fmt::format("{} ports, at most {} are possible", config.ports.size(), kMaxPorts));
  }
  std::set<std::string> names;
  std::set<uint32_t> indexes;
  for (const PortRecord& port : config.ports) {
    if (port.name.empty() || port.name.size() >= IFNAMSIZ ||
        port.name.find_first_of(" /") != std::string::npos) {
      throw InputError(fmt::format("port {}: \"{}\" is no interface name; set name = \"eth0\" or the like",
                                   port.index, port.name));
    }
    if (!names.insert(port.name).second) throw InputError(fmt::format("port {} is there twice", port.name));
    if (!indexes.insert(port.index).second) {
      throw InputError(fmt::format("port {}: index {} belongs to another port", port.name, port.index));
    }
  }
}

void CheckBindingsFile(const std::string& path) {
  if (path.empty()) return;
  const auto require = [&](bool done, std::string_view what) {
    if (done) return;
    throw InputError(fmt::format("bindings file {}: {}: {}", path, what, std::strerror(errno)));
  };
  struct stat found {};
  if (stat(path.c_str(), &found) == 0) {
    if (!S_ISREG(found.st_mode)) throw InputError(fmt::format("bindings file {}: is no regular file", path));
    require(access(path.c_str(), R_OK) == 0, "cannot be read");
  }
  const size_t slash = path.rfind('/');
  const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  require(access(directory.c_str(), W_OK | X_OK) == 0, "its directory cannot be written");
}

}  // namespace vex::host::live
