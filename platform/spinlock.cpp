// spinlock.cpp - the framework's spinlock: one 32-bit word, 0 when free, else the number of the thread that
// holds it. In:  lock, try, unlock from any thread. Out: counts of failed tries and waits; findings for an
// unlock by another thread. A thread that would wait for itself stops the program with a line, instead of
// hanging for ever.
#include <sched.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "dhcp_vex_platform.h"
#include "platform/faults.h"
#include "platform/findings.h"
#include "platform/memory.h"

namespace vex::platform {
namespace {

std::atomic<uint64_t> g_busyTries{0};
std::atomic<uint64_t> g_waits{0};

uint32_t ThreadNumber() {
  static std::atomic<uint32_t> next{1};
  thread_local const uint32_t number = next.fetch_add(1, std::memory_order_relaxed);
  return number;
}

bool TryTake(OrbSpinlock* lock, uint32_t self) {
  uint32_t holder = 0;
  return std::atomic_ref(lock->word)
      .compare_exchange_strong(holder, self, std::memory_order_acquire, std::memory_order_relaxed);
}

void WaitFor(OrbSpinlock* lock, uint32_t self) {
  constexpr int kTriesBeforeYield = 64;
  std::atomic_ref word(lock->word);
  if (word.load(std::memory_order_relaxed) == self) {
    std::fprintf(stderr, "spinlock %p: taken again by the thread that holds it; this would never end\n",
                 static_cast<void*>(lock));
    std::abort();
  }
  g_waits.fetch_add(1, std::memory_order_relaxed);
  for (int tries = 0; !TryTake(lock, self);) {
    while (word.load(std::memory_order_relaxed) != 0) {
      if (++tries > kTriesBeforeYield) sched_yield();
    }
  }
}

}  // namespace

SpinlockStats GetSpinlockStats() {
  return {g_busyTries.load(std::memory_order_relaxed), g_waits.load(std::memory_order_relaxed)};
}

void ResetSpinlockStats() {
  g_busyTries.store(0, std::memory_order_relaxed);
  g_waits.store(0, std::memory_order_relaxed);
}

}  // namespace vex::platform

using namespace vex::platform;  // NOLINT: what follows is nothing but the C surface over that namespace

extern "C" {

uint32_t OrbSpinlockInit(OrbSpinlock* lock) {
  if (const Outcome fault = Watch(Import::OrbSpinlockInit, lock)) return fault.Code();
  if (lock == nullptr) return 1;
  std::atomic_ref(lock->word).store(0, std::memory_order_release);
  return 0;
}

void OrbSpinlockLock(OrbSpinlock* lock) {
  Watch(Import::OrbSpinlockLock, lock);
  const uint32_t self = ThreadNumber();
  if (!TryTake(lock, self)) WaitFor(lock, self);
}

uint32_t OrbSpinlockTrylock(OrbSpinlock* lock) {
  if (!Watch(Import::OrbSpinlockTrylock, lock) && TryTake(lock, ThreadNumber())) return 1;
  g_busyTries.fetch_add(1, std::memory_order_relaxed);
  return 0;
}

void OrbSpinlockUnlock(OrbSpinlock* lock) {
  Watch(Import::OrbSpinlockUnlock, lock);
  std::atomic_ref word(lock->word);
  const uint32_t holder = word.load(std::memory_order_relaxed);
  if (holder != ThreadNumber()) {
    ReportFinding(holder == 0 ? std::string("unlock of a spinlock that nobody holds")
                              : "unlock of a spinlock that thread " + std::to_string(holder) + " holds");
  }
  word.store(0, std::memory_order_release);
}

}  // extern "C"
