// dhcp_vex_shared_word.h - words that threads share without a lock.
// In:  a plain exported or static word. Out: relaxed atomic access to it, so that its layout stays plain
// while no access races. Relaxed is enough because none of these words publishes other memory.
#pragma once

#include <atomic>
#include <cstdint>

namespace dhcp_vex {

template <class T>
T Load(T& word) {
  return std::atomic_ref<T>(word).load(std::memory_order_relaxed);
}

template <class T>
void Store(T& word, T value) {
  std::atomic_ref<T>(word).store(value, std::memory_order_relaxed);
}

// Answers the value before the addition.
inline uint64_t Add(uint64_t& word, uint64_t amount) {
  return std::atomic_ref<uint64_t>(word).fetch_add(amount, std::memory_order_relaxed);
}

}  // namespace dhcp_vex
