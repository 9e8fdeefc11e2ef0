// objects.cpp - see objects.h; with the imports of the object database and the functions behind the optional
// libraries. In:  rows; create, read, get, release. Out: values of rows; 1 for wrong use, 2 for a row that
// does not exist.
#include "platform/objects.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "platform/faults.h"
#include "platform/findings.h"
#include "platform/packet.h"

namespace vex::platform {
namespace {

constexpr int32_t kWrongUse = 1;
constexpr int32_t kNoSuchRow = 2;

uint32_t WordAt(const void* bytes, size_t index) {  // host byte order
  uint32_t word = 0;
  std::memcpy(&word, static_cast<const uint8_t*>(bytes) + index * sizeof(word), sizeof(word));
  return word;
}

const char* KindName(ObjectTables::Kind kind) {
  return kind == ObjectTables::Kind::kArp ? "ARP" : "interface-configuration";
}

}  // namespace

ObjectTables& Objects() {
  static ObjectTables* const tables = new ObjectTables;
  return *tables;
}

void ObjectTables::SetTunnel(uint32_t tunnelId, uint32_t tunnelType, Tunnel tunnel) {
  const std::lock_guard lock(mutex_);
  tunnels_[{tunnelId, tunnelType}] = tunnel;
}

std::optional<Tunnel> ObjectTables::FindTunnel(uint32_t tunnelId, uint32_t tunnelType) const {
  const std::lock_guard lock(mutex_);
  const auto row = tunnels_.find({tunnelId, tunnelType});
  return row == tunnels_.end() ? std::nullopt : std::optional(row->second);
}

void ObjectTables::SetInterfaceVlan(uint32_t ifIndex, uint32_t vlanId) {
  const std::lock_guard lock(mutex_);
  interfaceVlans_[ifIndex] = vlanId;
}

void ObjectTables::SetArp(uint32_t nextHop, uint32_t outIfIndex, uint32_t workIfIndex) {
  const std::lock_guard lock(mutex_);
  arp_[{nextHop, outIfIndex}] = workIfIndex;
}

void ObjectTables::ClearRows() {
  const std::lock_guard lock(mutex_);
  tunnels_.clear();
  interfaceVlans_.clear();
  arp_.clear();
}

std::vector<MlagSend> ObjectTables::TakeMlagSends() {
  const std::lock_guard lock(mutex_);
  return std::exchange(mlagSends_, {});
}

int32_t ObjectTables::Create(Kind kind, uint32_t three, uint32_t zero, void** handle) {
  if (three != 3 || zero != 0 || handle == nullptr) return kWrongUse;
  const std::lock_guard lock(mutex_);
  *handle = *handles_.insert(new Handle{kind, std::nullopt}).first;
  return 0;
}

int32_t ObjectTables::Read(void* handle, const void* keyDescriptor, const void* key) {
  const std::lock_guard lock(mutex_);
  auto* const object = static_cast<Handle*>(handle);
  if (!handles_.contains(object) || keyDescriptor == nullptr || key == nullptr) return kWrongUse;
  constexpr std::array<uint8_t, 12> kZeros{};
  const bool clean =
      std::memcmp(static_cast<const uint8_t*>(keyDescriptor) + 4, kZeros.data(), kZeros.size()) == 0;
  if (WordAt(keyDescriptor, 0) != static_cast<uint32_t>(object->kind) || !clean) return kWrongUse;
  object->value.reset();
  if (object->kind == Kind::kInterface) {
    const auto row = interfaceVlans_.find(WordAt(key, 0));
    if (row != interfaceVlans_.end()) object->value = row->second;
  } else {
    const auto row = arp_.find({WordAt(key, 0), WordAt(key, 1)});
    if (row != arp_.end()) object->value = row->second;
  }
  return object->value ? 0 : kNoSuchRow;
}

int32_t ObjectTables::Get(Kind kind, void* handle, uint32_t* value) {
  const std::lock_guard lock(mutex_);
  auto* const object = static_cast<Handle*>(handle);
  if (!handles_.contains(object) || object->kind != kind || value == nullptr) return kWrongUse;
  if (!object->value) return kNoSuchRow;
  *value = *object->value;
  return 0;
}

void ObjectTables::Release(Kind kind, void* handle) {
  const std::lock_guard lock(mutex_);
  auto* const object = static_cast<Handle*>(handle);
  if (handles_.contains(object) && object->kind == kind) {
    handles_.erase(object);
    delete object;
  } else if (handle != nullptr) {
    ReportFinding(std::string("release of an ") + KindName(kind) + " object that does not exist");
  }
}

void ObjectTables::NoteMlagSend(OrbMbuf* packet, uint32_t arg) {
  const auto bytes = PacketOf(packet).Bytes();
  const std::lock_guard lock(mutex_);
  mlagSends_.push_back({{bytes.begin(), bytes.end()}, arg});
}

size_t ObjectTables::LiveHandles() const {
  const std::lock_guard lock(mutex_);
  return handles_.size();
}

std::vector<std::string> ObjectTables::Leaks() const {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> lines;
  for (const Kind kind : {Kind::kInterface, Kind::kArp}) {
    const auto count = std::ranges::count(handles_, kind, [](const Handle* handle) { return handle->kind; });
    if (count > 0)
      lines.push_back(std::to_string(count) + " " + KindName(kind) + " object(s) were never released");
  }
  return lines;
}

void ObjectTables::Reset() {
  ClearRows();
  const std::lock_guard lock(mutex_);
  for (const Handle* handle : handles_) delete handle;
  handles_.clear();
  mlagSends_.clear();
}

namespace {

int32_t CreateObject(Import import, ObjectTables::Kind kind, uint32_t three, uint32_t zero, void** handle) {
  if (const Outcome fault = Watch(import, three, zero, handle)) {
    if (!fault.Hollow()) return static_cast<int32_t>(fault.Code());
    *handle = nullptr;
    return 0;
  }
  return Objects().Create(kind, three, zero, handle);
}

}  // namespace
}  // namespace vex::platform

using namespace vex::platform;  // NOLINT: what follows is nothing but the C surface over that namespace

extern "C" {

int32_t db_create_if_cfg_obj(uint32_t three, uint32_t zero, void** handle) {
  return CreateObject(Import::db_create_if_cfg_obj, ObjectTables::Kind::kInterface, three, zero, handle);
}

int32_t db_read_obj(void* handle, const void* keyDescriptor, const void* key) {
  if (const Outcome fault = Watch(Import::db_read_obj, handle, keyDescriptor, key)) {
    return static_cast<int32_t>(fault.Code());
  }
  return Objects().Read(handle, keyDescriptor, key);
}

int32_t db_get_if_cfg_vlan_id(void* handle, uint32_t* vlanId) {
  if (const Outcome fault = Watch(Import::db_get_if_cfg_vlan_id, handle, vlanId)) {
    return static_cast<int32_t>(fault.Code());
  }
  return Objects().Get(ObjectTables::Kind::kInterface, handle, vlanId);
}

void db_release_if_cfg_object(void* handle) {
  Watch(Import::db_release_if_cfg_object, handle);
  Objects().Release(ObjectTables::Kind::kInterface, handle);
}

int32_t VexPlatformArpCreate(uint32_t three, uint32_t zero, void** handle) {
  return CreateObject(Import::db_create_arp_obj, ObjectTables::Kind::kArp, three, zero, handle);
}

void VexPlatformArpRelease(void* handle) {
  Watch(Import::db_release_arp_object, handle);
  Objects().Release(ObjectTables::Kind::kArp, handle);
}

int32_t VexPlatformArpGetWorkIfIndex(void* handle, uint32_t* workIfIndex) {
  if (const Outcome fault = Watch(Import::db_get_arp_work_if_index, handle, workIfIndex)) {
    return static_cast<int32_t>(fault.Code());
  }
  return Objects().Get(ObjectTables::Kind::kArp, handle, workIfIndex);
}

uint32_t VexPlatformMlagSend(OrbMbuf* packet, uint32_t arg) {
  if (const Outcome fault = Watch(Import::MLAG_VEX_SendPacketPublic, packet, arg)) return fault.Code();
  if (packet == nullptr) return 1;
  Objects().NoteMlagSend(packet, arg);
  return 0;
}

}  // extern "C"
