// config_ports.cpp - the [[port]] tables of the configuration file.
// In:  the parsed array. Out: checked PortRecords, no two with the same index, name, capture interface or
// address.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <map>

#include "host/config_reader.h"
#include "host/settings.h"

namespace vex::host {
namespace {

constexpr std::array<std::string_view, 9> kPortKeys = {
    "index", "name", "capture_interface", "mac", "vlan", "trusted", "management", "peer_link", "cause"};
constexpr NumberRange kIndex{kPortIndexRange.min, kPortIndexRange.max};
constexpr NumberRange kCaptureInterface{0, 65535, "interface number of the capture file"};
constexpr NumberRange kVlan{kVlanIdRange.min, kVlanIdRange.max, "VLAN id of untagged frames"};
constexpr NumberRange kCause{0, 65535, "cause id of punted packets"};
constexpr size_t kMaxName = 64;

std::optional<uint8_t> HexByte(std::string_view two) {
  uint8_t value = 0;
  for (const char c : two) {
    const bool digit = c >= '0' && c <= '9', lower = c >= 'a' && c <= 'f', upper = c >= 'A' && c <= 'F';
    if (!digit && !lower && !upper) return std::nullopt;
    value = static_cast<uint8_t>(value << 4 | (digit ? c - '0' : (lower ? c - 'a' : c - 'A') + 10));
  }
  return value;
}

// Six hex bytes with ':' or '-' between them, one of the two throughout.
std::optional<MacAddress> ParseMac(std::string_view text) {
  if (text.size() != 17) return std::nullopt;
  MacAddress mac{};
  for (size_t i = 0; i < mac.size(); ++i) {
    const auto byte = HexByte(text.substr(3 * i, 2));
    if (!byte || (i > 0 && (text[3 * i - 1] != text[2] || (text[2] != ':' && text[2] != '-'))))
      return std::nullopt;
    mac[i] = *byte;
  }
  return mac;
}

// Reads one port and notes what collides with the ports before it.
class PortReader {
 public:
  PortReader(Config& config, Problems& problems) : config_(config), problems_(problems) {}

  void Read(const toml::table& table) {
    PortRecord port;
    bool has_index = false;
    for (const auto& [key, node] : table) has_index |= Key(key, node, port);
    if (!has_index && port.capture_interface)
      port.index = *port.capture_interface + 1;
    else if (!has_index)
      problems_.Add(table.source(),
                    fmt::format("port: needs an index, allowed {} to {}", kIndex.min, kIndex.max));
    if (port.name.empty()) port.name = fmt::format("port {}", port.index);
    Unique(table, "index", fmt::format("{}", port.index));
    if (port.capture_interface)
      Unique(table, "capture_interface", fmt::format("{}", *port.capture_interface));
    Unique(table, "name", port.name);
    config_.ports.push_back(std::move(port));
  }

 private:
  // True when the key was the index.
  bool Key(const toml::key& key, const toml::node& node, PortRecord& port) {
    const std::string_view name = key.str();
    const std::string path = fmt::format("port.{}", name);
    if (name == "index") {
      port.index = ReadNumber(node, path, kIndex, problems_).value_or(0);
      return true;
    }
    if (name == "capture_interface")
      port.capture_interface = ReadNumber(node, path, kCaptureInterface, problems_);
    else if (name == "name")
      ReadName(node, path, port);
    else if (name == "mac")
      ReadMacs(node, path, port);
    else if (name == "vlan")
      port.vlan = static_cast<uint16_t>(ReadNumber(node, path, kVlan, problems_).value_or(0));
    else if (name == "cause")
      port.cause = ReadNumber(node, path, kCause, problems_).value_or(0);
    else if (bool* flag = Flag(name, port))
      *flag = ReadFlag(node, path, problems_).value_or(false);
    else
      UnknownKey(key, "port.", kPortKeys, problems_);
    return false;
  }

  static bool* Flag(std::string_view name, PortRecord& port) {
    if (name == "trusted") return &port.trusted;
    if (name == "management") return &port.management;
    if (name == "peer_link") return &port.peer_link;
    return nullptr;
  }

  void ReadName(const toml::node& node, const std::string& path, PortRecord& port) {
    port.name = ReadText(node, path, problems_).value_or("");
    if (node.is_string() && (port.name.empty() || port.name.size() > kMaxName))
      problems_.Add(node.source(), fmt::format("{}: a name has 1 to {} bytes, this one {}", path, kMaxName,
                                               port.name.size()));
  }

  void ReadMacs(const toml::node& node, const std::string& path, PortRecord& port) {
    if (const toml::array* list = node.as_array()) {
      for (const toml::node& item : *list) ReadMac(item, path, port);
    } else {
      ReadMac(node, path, port);
    }
  }

  void ReadMac(const toml::node& node, const std::string& path, PortRecord& port) {
    const auto text = ReadText(node, path, problems_);
    if (!text) return;
    const auto mac = ParseMac(*text);
    if (!mac) {
      problems_.Add(
          node.source(),
          fmt::format("{}: \"{}\" is not a MAC address, write six hex bytes like \"02:00:00:00:00:0a\"", path,
                      *text));
      return;
    }
    Unique(node, "mac", fmt::format("{:02x}", fmt::join(*mac, ":")));
    port.macs.push_back(*mac);
  }

  void Unique(const toml::node& node, std::string_view what, const std::string& value) {
    const auto [seen, added] = seen_.emplace(fmt::format("{} {}", what, value), node.source().begin.line);
    if (!added)
      problems_.Add(node.source(),
                    fmt::format("port.{}: {} is already used in line {}", what, value, seen->second));
  }

  Config& config_;
  Problems& problems_;
  std::map<std::string, uint32_t> seen_;  // "what value" -> line
};

}  // namespace

void ReadPorts(const toml::node& node, Config& config, Problems& problems) {
  const toml::array* list = node.as_array();
  if (list == nullptr ||
      !std::all_of(list->begin(), list->end(), [](const toml::node& n) { return n.is_table(); })) {
    problems.Add(node.source(), fmt::format("port: {} where tables [[port]] are expected, with {}",
                                            KindOf(node), fmt::join(kPortKeys, ", ")));
    return;
  }
  PortReader reader(config, problems);
  for (const toml::node& item : *list) reader.Read(*item.as_table());
}

}  // namespace vex::host
