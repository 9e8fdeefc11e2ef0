// dhcp_vex_guard.h - scoped ownership: the framework's spinlock, waited for or only tried, and packets.
// In:  a lock or a packet. Out: release at the closing brace unless the owner was told otherwise.
#pragma once

#include "dhcp_vex_platform.h"

namespace dhcp_vex {

class [[nodiscard]] LockGuard {
 public:
  explicit LockGuard(OrbSpinlock& lock) : lock_(lock) { OrbSpinlockLock(&lock_); }
  ~LockGuard() { OrbSpinlockUnlock(&lock_); }
  LockGuard(const LockGuard&) = delete;
  LockGuard& operator=(const LockGuard&) = delete;

 private:
  OrbSpinlock& lock_;
};

class [[nodiscard]] TryGuard {
 public:
  explicit TryGuard(OrbSpinlock& lock) : lock_(lock), held_(OrbSpinlockTrylock(&lock) == 1) {}
  ~TryGuard() {
    if (held_) OrbSpinlockUnlock(&lock_);
  }
  explicit operator bool() const { return held_; }
  TryGuard(const TryGuard&) = delete;
  TryGuard& operator=(const TryGuard&) = delete;

 private:
  OrbSpinlock& lock_;
  const bool held_;
};

// A packet that this scope frees unless it hands it over. `line` names the site in the framework's
// accounting.
class [[nodiscard]] OwnedPacket {
 public:
  OwnedPacket(OrbMbuf* pkt, const char* sourcePath, uint32_t line)
      : pkt_(pkt), sourcePath_(sourcePath), line_(line) {}
  ~OwnedPacket() {
    if (pkt_ != nullptr) g_mbufFreeCb(pkt_, sourcePath_, line_);
  }
  OwnedPacket(const OwnedPacket&) = delete;
  OwnedPacket& operator=(const OwnedPacket&) = delete;

  explicit operator bool() const { return pkt_ != nullptr; }
  OrbMbuf* Get() const { return pkt_; }
  // Somebody else owns the packet from here on.
  OrbMbuf* Release() {
    OrbMbuf* pkt = pkt_;
    pkt_ = nullptr;
    return pkt;
  }

 private:
  OrbMbuf* pkt_;
  const char* sourcePath_;
  uint32_t line_;
};

}  // namespace dhcp_vex
