// board.cpp - see board.h; with the imports that ask for the board and register services and hooks.
// In:  the host's settings, the module's registrations. Out: answers; calls of hooks.
#include "platform/board.h"

#include <cstring>

#include "platform/faults.h"
#include "platform/module_loader.h"

namespace vex::platform {
namespace {

// The service's number and name in the 48-byte registration record, host byte order.
constexpr size_t kNumberAt = 12, kNameAt = 14, kNameLength = 32;

}  // namespace

Board& TheBoard() {
  static Board* const board = new Board;
  return *board;
}

void Board::SetCapability(std::string_view name, uint32_t value) {
  const std::lock_guard lock(mutex_);
  capabilities_.insert_or_assign(std::string(name), value);
}

void Board::RemoveCapability(std::string_view name) {
  const std::lock_guard lock(mutex_);
  if (const auto item = capabilities_.find(name); item != capabilities_.end()) capabilities_.erase(item);
}

std::optional<uint32_t> Board::Capability(std::string_view name) const {
  const std::lock_guard lock(mutex_);
  const auto item = capabilities_.find(name);
  return item == capabilities_.end() ? std::nullopt : std::optional(item->second);
}

void Board::AddRpcService(const void* record48) {
  RpcService service{};
  std::memcpy(service.record.data(), record48, service.record.size());
  std::memcpy(&service.number, service.record.data() + kNumberAt, sizeof(service.number));
  const char* const name = reinterpret_cast<const char*>(service.record.data()) + kNameAt;
  service.name.assign(name, strnlen(name, kNameLength));
  const std::lock_guard lock(mutex_);
  services_.push_back(std::move(service));
}

std::vector<RpcService> Board::RpcServices() const {
  const std::lock_guard lock(mutex_);
  return services_;
}

void Board::RemoveRpcServices() {
  const std::lock_guard lock(mutex_);
  services_.clear();
}

void Board::Reset() {
  SetType(1);
  const std::lock_guard lock(mutex_);
  capabilities_.clear();
  services_.clear();
}

HookTable& Hooks() {
  static HookTable* const table = new HookTable;
  return *table;
}

bool HookTable::Register(uint32_t point, uint32_t value, Callback callback, const char* name) {
  if (callback == nullptr) return false;
  const std::lock_guard lock(mutex_);
  Slot* empty = nullptr;
  for (Slot& slot : slots_) {
    const Callback taken = slot.callback.load(std::memory_order_relaxed);
    if (taken == callback && slot.point == point) return true;
    if (taken == nullptr && empty == nullptr) empty = &slot;
  }
  if (empty == nullptr) return false;
  empty->point = point;
  empty->value = value;
  empty->name = name != nullptr ? name : "";
  empty->callback.store(callback, std::memory_order_release);
  return true;
}

std::vector<HookTable::Hook> HookTable::All() const {
  const std::lock_guard lock(mutex_);
  std::vector<Hook> hooks;
  for (const Slot& slot : slots_) {
    const Callback callback = slot.callback.load(std::memory_order_relaxed);
    if (callback != nullptr) hooks.push_back({slot.point, slot.value, slot.name, callback});
  }
  return hooks;
}

void HookTable::RemoveObject(const void* objectBase) {
  const std::lock_guard lock(mutex_);
  for (Slot& slot : slots_) {
    const Callback callback = slot.callback.load(std::memory_order_relaxed);
    if (callback != nullptr && ObjectBase(reinterpret_cast<const void*>(callback)) == objectBase) {
      slot.callback.store(nullptr, std::memory_order_release);
    }
  }
}

void HookTable::Reset() {
  const std::lock_guard lock(mutex_);
  for (Slot& slot : slots_) slot.callback.store(nullptr, std::memory_order_release);
}

}  // namespace vex::platform

using namespace vex::platform;  // NOLINT: what follows is nothing but the C surface over that namespace

extern "C" {

void* g_pluginModRegHead = nullptr;

uint32_t OrbCurrentBoard(void) {
  Watch(Import::OrbCurrentBoard);
  return TheBoard().Type();
}

uint32_t OrbCapabilityQueryItem(const char* descr, void* result, uint32_t size) {
  if (const Outcome fault = Watch(Import::OrbCapabilityQueryItem, descr, result, size)) return fault.Code();
  if (descr == nullptr || result == nullptr || size != sizeof(uint32_t)) return 1;
  const std::optional<uint32_t> value = TheBoard().Capability(descr);
  if (!value) return 1;
  std::memcpy(result, &*value, sizeof(uint32_t));
  return 0;
}

uint32_t RegTavriRpcServerToVex(const void* record) {
  if (const Outcome fault = Watch(Import::RegTavriRpcServerToVex, record)) return fault.Code();
  if (record == nullptr) return 1;
  TheBoard().AddRpcService(record);
  return 0;
}

uint64_t HostHookRegister(uint32_t hookPoint, uint32_t value, uint32_t (*callback)(OrbMbuf*),
                          const char* name) {
  if (const Outcome fault = Watch(Import::HostHookRegister, hookPoint, value, callback, name))
    return fault.Code64(1);
  return Hooks().Register(hookPoint, value, callback, name) ? 0 : 1;
}

}  // extern "C"
