// binding_codec.cpp - bindings to and from the lines of a file.
// In:  bindings, or a file's untrusted bytes. Out: text, or the intact bindings and what is wrong with the
// rest.
#include "service/binding_codec.h"

#include <fmt/format.h>

#include <array>
#include <charconv>
#include <iterator>
#include <nlohmann/json.hpp>

namespace vex::service {
namespace {

using nlohmann::json;

constexpr std::string_view kFormat = "vex-bindings";
constexpr uint32_t kVersion = 1;
constexpr size_t kChecksumDigits = 8;

// CRC-32 of IEEE 802.3, reflected.
constexpr std::array<uint32_t, 256> kCrcTable = [] {
  std::array<uint32_t, 256> table{};
  for (uint32_t i = 0; i < table.size(); ++i) {
    uint32_t crc = i;
    for (int bit = 0; bit < 8; ++bit) crc = crc >> 1 ^ ((crc & 1) != 0 ? 0xEDB88320 : 0);
    table[i] = crc;
  }
  return table;
}();

uint32_t Crc32(std::string_view text) {
  uint32_t crc = 0xFFFFFFFF;
  for (const char c : text) crc = kCrcTable[(crc ^ static_cast<uint8_t>(c)) & 0xFF] ^ crc >> 8;
  return ~crc;
}

void AppendLine(std::string& out, const json& object) {
  const std::string text = object.dump();
  fmt::format_to(std::back_inserter(out), "{:08x} {}\n", Crc32(text), text);
}

json ToJson(const Binding& binding) {
  json object = {{"kind", Name(binding.kind)},
                 {"address", ToText(binding.address)},
                 {"prefix", binding.prefix_length},
                 {"vlan", binding.vlan},
                 {"port", binding.port},
                 {"mac", ToText(binding.mac)},
                 {"end", binding.lease_end}};
  if (!binding.duid.empty()) object["duid"] = ToHex(binding.duid);
  return object;
}

// Members of an object that may hold anything.
template <class T>
std::optional<T> NumberAt(const json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_number_unsigned()) return std::nullopt;
  const uint64_t value = found->get<uint64_t>();
  if (value > std::numeric_limits<T>::max()) return std::nullopt;
  return static_cast<T>(value);
}

std::string TextAt(const json& object, const char* key) {
  const auto found = object.find(key);
  return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

// The problem with it, or empty and the binding filled in.
std::string FromJson(const json& object, Binding& binding) {
  const auto kind = ParseBindingKind(TextAt(object, "kind"));
  if (!kind) return "\"kind\" is not one of v4, ia_na, ia_ta, ia_pd";
  const auto address = ParseIp(TextAt(object, "address"));
  if (!address || address->v6 != (*kind != BindingKind::kDhcp4))
    return "\"address\" is not an address of its kind";
  const auto prefix = NumberAt<uint8_t>(object, "prefix");
  if (!prefix || *prefix > (address->v6 ? 128 : 32)) return "\"prefix\" is no prefix length";
  const auto vlan = NumberAt<uint16_t>(object, "vlan");
  if (!vlan || *vlan > 4095) return "\"vlan\" is no VLAN";
  const auto port = NumberAt<uint32_t>(object, "port");
  if (!port) return "\"port\" is no interface index";
  const auto mac = ParseMac(TextAt(object, "mac"));
  if (!mac) return "\"mac\" is no MAC address";
  const auto end = NumberAt<uint64_t>(object, "end");
  if (!end) return "\"end\" is no time";
  auto duid = ParseHex(TextAt(object, "duid"));
  if (!duid || duid->size() > kMaxDuid) return "\"duid\" is no DUID";
  binding = {*kind, *address, *prefix, *vlan, *port, *mac, std::move(*duid), *end};
  return "";
}

// Reads the lines of one file. A damaged line is named and left out; the rest is kept.
class Reader {
 public:
  Reader(std::string_view name, size_t max_bindings) : name_(name), max_(max_bindings) {}

  LoadedBindings Read(std::string_view text) {
    while (!text.empty()) {
      ++line_;
      const size_t end = text.find('\n');
      if (end == std::string_view::npos) {
        Problem("the line has no end: the file is cut off");
        break;
      }
      if (!TakeLine(text.substr(0, end))) break;
      text.remove_prefix(end + 1);
    }
    Finish();
    return std::move(loaded_);
  }

 private:
  // False: no use reading on.
  bool TakeLine(std::string_view line) {
    json object;
    const std::string damage = Check(line, object);
    if (line_ == 1) return damage.empty() ? TakeHead(object) : HeadDamaged(damage);
    if (loaded_.bindings.size() >= max_) {
      Problem(fmt::format("more than {} bindings; the rest is not read", max_));
      return false;
    }
    Binding binding;
    const std::string wrong = damage.empty() ? FromJson(object, binding) : damage;
    if (wrong.empty())
      loaded_.bindings.push_back(std::move(binding));
    else
      Problem(wrong + "; this binding is left out");
    return true;
  }

  // Without a head the number of bindings is unknown; each line still speaks for itself.
  bool HeadDamaged(const std::string& damage) {
    Problem(damage + "; the number of bindings is unknown");
    return true;
  }

  bool TakeHead(const json& object) {
    if (TextAt(object, "format") != kFormat) {
      Problem("this is no bindings file");
      return false;
    }
    if (NumberAt<uint32_t>(object, "version") != kVersion) {
      Problem(fmt::format("its version is not {}: it was written by another release", kVersion));
      return false;
    }
    promised_ = NumberAt<uint64_t>(object, "bindings");
    return true;
  }

  static std::string Check(std::string_view line, json& object) {
    if (line.size() > kMaxBindingLine) return "the line is too long";
    if (line.size() <= kChecksumDigits || line[kChecksumDigits] != ' ') return "the line has no checksum";
    const std::string_view digits = line.substr(0, kChecksumDigits);
    uint32_t checksum = 0;
    const auto [end, error] = std::from_chars(digits.begin(), digits.end(), checksum, 16);
    if (error != std::errc() || end != digits.end()) return "the line has no checksum";
    const std::string_view text = line.substr(kChecksumDigits + 1);
    if (Crc32(text) != checksum) return "the checksum is wrong";
    object = json::parse(text, nullptr, false);
    return object.is_object() ? "" : "the line is no JSON object";
  }

  void Finish() {
    if (line_ == 0) return Problem("the file is empty");
    const size_t lines = line_ - 1;
    if (promised_ && *promised_ > lines && loaded_.bindings.size() < max_)
      Problem(fmt::format("the file ends after {} of {} bindings", lines, *promised_));
    if (problems_ > LoadedBindings::kMaxProblems)
      loaded_.problems.push_back(
          fmt::format("{}: {} more problems", name_, problems_ - LoadedBindings::kMaxProblems));
  }

  void Problem(const std::string& what) {
    if (++problems_ <= LoadedBindings::kMaxProblems)
      loaded_.problems.push_back(fmt::format("{}:{}: {}", name_, line_, what));
  }

  const std::string_view name_;
  const size_t max_;
  size_t line_ = 0;
  size_t problems_ = 0;
  std::optional<uint64_t> promised_;
  LoadedBindings loaded_;
};

}  // namespace

std::string FormatBindings(std::span<const Binding> bindings) {
  std::string text;
  AppendLine(text, {{"format", kFormat}, {"version", kVersion}, {"bindings", bindings.size()}});
  for (const Binding& binding : bindings) AppendLine(text, ToJson(binding));
  return text;
}

LoadedBindings ParseBindings(std::string_view text, std::string_view name, size_t max_bindings) {
  return Reader(name, max_bindings).Read(text);
}

}  // namespace vex::service
