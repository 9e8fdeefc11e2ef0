// bindings.cpp - the binding table, and the callback that feeds it.
// In:  user-binding messages. Out: the table.
#include "service/bindings.h"

#include <atomic>
#include <stdexcept>

#include "platform/packet.h"

namespace vex::service {
namespace {

// Where the callback delivers. Writer: BindingFeed, while no channel event is served; reader: the callback.
std::atomic<BindingTable*> g_fed_table{nullptr};

uint32_t OnUserBinding(void* body, void*) {
  BindingTable* const table = g_fed_table.load(std::memory_order_acquire);  // pairs with the feed's release
  if (table == nullptr || body == nullptr) return 0;
  // The body's length is not told; the packet buffer that it lies in bounds the read.
  const size_t readable = std::min(platform::Packets().BytesBehind(body), sizeof(BindingMessage));
  if (const auto event = DecodeBinding({static_cast<const uint8_t*>(body), readable}))
    table->Apply(*event);
  else
    table->NoteDamaged();
  return 0;
}

}  // namespace

BindingTable::BindingTable(size_t max_bindings) : max_(max_bindings) {}

BindingTable::Key BindingTable::KeyOf(const Binding& binding) {
  return {binding.vlan, binding.kind, binding.prefix_length, binding.address};
}

void BindingTable::Apply(const BindingEvent& event) {
  std::function<void(const BindingEvent&)> observer;
  {
    const std::lock_guard lock(mutex_);
    ++stats_.messages;
    if (!ApplyLocked(event)) return;
    ++version_;
    observer = observer_;
  }
  if (observer) observer(event);
}

bool BindingTable::ApplyLocked(const BindingEvent& event) {
  if (Removes(event.change)) return Remove(event.binding);
  const Key key = KeyOf(event.binding);
  const auto found = bindings_.find(key);
  if (found == bindings_.end() && bindings_.size() >= max_) {
    ++stats_.refused;
    return false;
  }
  // An address that another client held is this client's now: the server gave it to whom it asked last.
  const bool renewed = found != bindings_.end() && SameLease(found->second, event.binding);
  ++(renewed ? stats_.renewed : stats_.made);
  bindings_.insert_or_assign(found, key, event.binding);
  earliest_end_ = std::min(earliest_end_, event.binding.lease_end);
  return true;
}

bool BindingTable::Remove(const Binding& binding) {
  const auto found = bindings_.find(KeyOf(binding));
  if (found == bindings_.end() || !SameLease(found->second, binding)) {
    ++stats_.unmatched;
    return false;
  }
  bindings_.erase(found);
  ++stats_.removed;
  return true;
}

void BindingTable::NoteDamaged() {
  const std::lock_guard lock(mutex_);
  ++stats_.damaged;
}

size_t BindingTable::Expire(int64_t now_ns) {
  const std::lock_guard lock(mutex_);
  if (!HasEnded(earliest_end_, now_ns)) return 0;
  const size_t gone =
      std::erase_if(bindings_, [now_ns](const auto& e) { return HasEnded(e.second.lease_end, now_ns); });
  earliest_end_ = kNoLeaseEnd;
  for (const auto& [key, binding] : bindings_) earliest_end_ = std::min(earliest_end_, binding.lease_end);
  stats_.expired += gone;
  version_ += gone == 0 ? 0 : 1;
  return gone;
}

size_t BindingTable::size() const {
  const std::lock_guard lock(mutex_);
  return bindings_.size();
}

std::vector<Binding> BindingTable::Snapshot() const {
  const std::lock_guard lock(mutex_);
  std::vector<Binding> bindings;
  bindings.reserve(bindings_.size());
  for (const auto& [key, binding] : bindings_) bindings.push_back(binding);
  return bindings;
}

BindingTableStats BindingTable::Stats() const {
  const std::lock_guard lock(mutex_);
  return stats_;
}

uint64_t BindingTable::Version() const {
  const std::lock_guard lock(mutex_);
  return version_;
}

void BindingTable::SetObserver(std::function<void(const BindingEvent&)> observer) {
  const std::lock_guard lock(mutex_);
  observer_ = std::move(observer);
}

BindingFeed::BindingFeed(const ModuleApi& module, BindingTable& table) : module_(module) {
  BindingTable* expected = nullptr;
  if (!g_fed_table.compare_exchange_strong(expected, &table, std::memory_order_release))
    throw std::runtime_error("two services in one process: destroy the first before making another");
  if (module_.register_callback(DHCP_EVENT_USER_BIND, OnUserBinding) == 0) return;
  g_fed_table.store(nullptr, std::memory_order_release);
  throw std::runtime_error("the module refused the user-binding callback: its memory is exhausted");
}

BindingFeed::~BindingFeed() {
  module_.remove_callback(DHCP_EVENT_USER_BIND, OnUserBinding);
  g_fed_table.store(nullptr, std::memory_order_release);
}

}  // namespace vex::service
