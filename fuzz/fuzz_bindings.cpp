// fuzz_bindings.cpp - any text as a file of bindings: what is intact, and a line for what is not.
// In:  the text as it stands; and once more with each line's text behind its right checksum, because a fuzzer
// does not guess checksums. Out: bindings that can be written and read back unchanged, or an abort.
#include <cstdio>
#include <string>

#include "fuzz/input.h"
#include "service/binding_codec.h"

namespace {

using namespace vex;
using service::Binding;
using service::IpAddress;

constexpr size_t kMost = 8;

// CRC-32 of IEEE 802.3 bit by bit, as the codec's table has to come out.
uint32_t Crc32(std::string_view text) {
  uint32_t crc = 0xFFFFFFFF;
  for (const char c : text) {
    crc ^= static_cast<uint8_t>(c);
    for (int bit = 0; bit < 8; ++bit) crc = crc >> 1 ^ (0xEDB88320 & (0 - (crc & 1)));
  }
  return ~crc;
}

std::string WithChecksums(std::string_view text) {
  std::string signedText;
  while (!text.empty()) {
    std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    if (line.size() > 8 && line[8] == ' ') line.remove_prefix(9);
    char checksum[16];
    std::snprintf(checksum, sizeof(checksum), "%08x ", Crc32(line));
    signedText.append(checksum).append(line) += '\n';
  }
  return signedText;
}

// The address and the client are the same after any way through bytes and text.
void RequireSameAfterBytes(const Binding& binding) {
  const IpAddress& address = binding.address;
  const service::Bytes bytes = address.bytes;
  fuzz::Require((address.v6 ? IpAddress::From6(bytes) : IpAddress::From4(bytes.first(4))) == address,
                "an address and its bytes are one");
  fuzz::Require(!IpAddress::From4(bytes) && !IpAddress::From6(bytes.first(15)), "an address has its length");
  if (!address.v6) {
    uint32_t number = 0;
    for (const uint8_t byte : bytes.first(4)) number = number << 8 | byte;
    fuzz::Require(IpAddress::V4(number) == address, "an address and its number are one");
  }
  fuzz::Require(service::MacFrom(binding.mac) == binding.mac, "a MAC address and its bytes are one");
  fuzz::Require(service::SameLease(binding, binding), "a lease is itself");
}

void Check(std::string_view text) {
  const auto loaded = service::ParseBindings(text, "fuzz", kMost);
  fuzz::Require(loaded.bindings.size() <= kMost, "the bound holds");
  fuzz::Require(loaded.problems.size() <= loaded.kMaxProblems + 1, "problems are bounded");
  for (const Binding& binding : loaded.bindings) RequireSameAfterBytes(binding);
  const auto second = service::ParseBindings(service::FormatBindings(loaded.bindings), "fuzz", kMost);
  fuzz::Require(second.problems.empty(), "what was loaded can be saved and loaded");
  fuzz::Require(second.bindings == loaded.bindings, "nothing is lost or changed on the way");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text = fuzz::AsText(data, size);
  const std::string signedText = WithChecksums(text);
  Check(text);
  if (text != signedText) Check(signedText);
  return 0;
}
