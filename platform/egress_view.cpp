// egress_view.cpp - reads a descriptor back: which settings it holds, in which order, as data and as text.
// In:  a HostEgressDesc. Out: EgressView.
#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "platform/egress_record.h"

namespace vex::platform {
namespace {

constexpr std::array<std::string_view, kEgressSetterCount> kNames = {
#define VEX_EGRESS_NAME(name) #name,
    VEX_EGRESS_SETTERS(VEX_EGRESS_NAME)
#undef VEX_EGRESS_NAME
};

template <size_t N>
std::vector<uint8_t> BytesOf(const uint8_t (&field)[N], size_t length = N) {
  return {field, field + std::min(length, N)};
}

EgressSetting Setting(const EgressRecord& record, EgressSetter setter) {
  EgressSetting setting{.setter = setter, .value = record.numbers[static_cast<size_t>(setter)], .bytes = {}};
  switch (setter) {
    case EgressSetter::kVlanBaseInfo:
      setting.bytes = BytesOf(record.vlanBaseInfo);
      break;
    case EgressSetter::kSrcMac:
      setting.bytes = BytesOf(record.srcMac);
      break;
    case EgressSetter::kDstMac:
      setting.bytes = BytesOf(record.dstMac);
      break;
    case EgressSetter::kDstAddr:
      setting.bytes = BytesOf(record.dstAddr);
      break;
    case EgressSetter::kNextHop:
      setting.bytes = BytesOf(record.nextHop);
      break;
    case EgressSetter::kUint32InfoByType:
      setting.type = record.uint32InfoType;
      break;
    case EgressSetter::kPruneType:
      setting.type = std::exchange(setting.value, 0);
      setting.bytes = BytesOf(record.pruneZero);
      break;
    case EgressSetter::kAppendTlv:
      setting.type = record.tlvType;
      setting.bytes = BytesOf(record.tlv, record.tlvLength);
      break;
    default:
      break;
  }
  return setting;
}

std::string TextOf(const EgressSetting& setting) {
  std::string text(EgressSetterName(setting.setter));
  if (setting.type != 0) text += " type " + std::to_string(setting.type);
  if (setting.bytes.empty() && setting.setter != EgressSetter::kIntfLen)
    text += " " + std::to_string(setting.value);
  for (const uint8_t byte : setting.bytes) {
    std::array<char, 4> hex{};
    std::snprintf(hex.data(), hex.size(), " %02x", byte);
    text += hex.data();
  }
  return text;
}

}  // namespace

std::string_view EgressSetterName(EgressSetter setter) { return kNames[static_cast<size_t>(setter)]; }

EgressView EgressView::Decode(const HostEgressDesc& desc) {
  const EgressRecord record = LoadEgressRecord(desc);
  EgressView view;
  const size_t calls = std::min<size_t>(record.calls, EgressRecord::kMostCalls);
  for (size_t i = 0; i < calls; ++i) {
    if (record.order[i] < kEgressSetterCount) {
      view.settings.push_back(Setting(record, static_cast<EgressSetter>(record.order[i])));
    }
  }
  return view;
}

const EgressSetting* EgressView::Find(EgressSetter setter) const {
  const auto found = std::ranges::find(settings, setter, &EgressSetting::setter);
  return found == settings.end() ? nullptr : &*found;
}

uint32_t EgressView::Value(EgressSetter setter) const {
  const EgressSetting* const setting = Find(setter);
  return setting != nullptr ? setting->value : 0;
}

std::string EgressView::ToString() const {
  std::string text;
  for (const EgressSetting& setting : settings) text += TextOf(setting) + "\n";
  return text;
}

}  // namespace vex::platform
