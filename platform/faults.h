// faults.h - which imported calls are watched, counted, recorded or told to fail.
// In:  orders from tests and the host (Arm, StartRecording); every import reports itself through Watch().
// Out: the outcome that the import has to answer, the number of calls, the list of calls in their order.
// Cost: while nothing is armed or recorded an import pays one relaxed load. Safe to use from any thread.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <string_view>
#include <type_traits>
#include <vector>

namespace vex::platform {

// Imports that have a failure result, by their C names; those of the optional libraries and g_mbufFreeCb
// (MbufFree) among them. Kept inputs of the fuzz targets name an import by its place: new ones go to the end.
// clang-format off
#define VEX_FALLIBLE_IMPORTS(X) \
  X(OrbCapabilityQueryItem) X(RegTavriRpcServerToVex) X(ORB_ThreadInfoGetByName) X(ORB_ChannelCreate) \
  X(ORB_ChannelGetIdByName) X(ORB_ChannelDcSend) X(ORB_ChannelDcRecv) X(ORB_EventWrite) \
  X(ORB_ChannelEventWritePublic) X(OrbChnEvtCallbackRegister) X(OrbSLcoreTimerCreateAndStart) \
  X(OrbSLcoreTimerDelete) X(OrbSpinlockInit) X(OrbSpinlockTrylock) X(OrbMemAllocInner) X(memset_s) \
  X(memcpy_s) X(sprintf_s) X(vsprintf_s) X(vsnprintf_truncated_s) X(HostDiagPrintf) \
  X(ORB_ImAgentMsgCreate) X(ORB_ImAgentAddPara) X(ORB_ImAgentSend) X(HostHookRegister) X(HostMbufGetL3Hdr) \
  X(HostMbufGetOutIfByL2vpnTnl) X(HostUploadLdmByHook) X(MbufPktNewFromData) X(OrbMbufPktCopyNew) \
  X(MbufPktAddHead) X(MbufPktCutHead) X(HostSetEgressOePriority) X(HostSetEgressIntfType) \
  X(HostSetEgressSendIfIndex) X(HostSetEgressProtoType) X(HostSetEgressBdId) X(HostSetEgressBsNoLinkEncap) \
  X(HostSetEgressBsVlanNum) X(HostSetEgressVlanBaseInfo) X(HostSetEgressPruneIf) \
  X(HostSetEgressBsSpecifyIpat) X(HostSetEgressVxlanEncodeVlan) X(HostSetEgressBsOeSMAC) \
  X(HostSetEgressBsOeDMAC) X(HostSetEgressSrcMac) X(HostSetEgressDstMac) X(HostSetEgressDstAddr) \
  X(HostSetEgressNextHop) X(HostSetEgressSvp) X(HostSetEgressTunnelID) X(HostSetEgressTunnelType) \
  X(HostSetEgressVrfIndex) X(HostSetEgressSendPhyIfIndex) X(HostSetEgressIntfLen) \
  X(HostSetEgressVxlanHubSpkV2) X(HostSetEgressVxlanVpeerlink) X(HostSetEgressUint32InfoByType) \
  X(HostSetEgressPruneType) X(HostSetEgressAppendTlv) X(HostEgressPktPubWithSource) \
  X(db_create_if_cfg_obj) X(db_read_obj) X(db_get_if_cfg_vlan_id) X(db_create_arp_obj) \
  X(db_get_arp_work_if_index) X(MLAG_VEX_SendPacketPublic) X(MbufFree) \
  X(HostMbufGetDstMac) X(HostMbufGetVlanTag)
// clang-format on

// Imports without a failure result that are still counted and recorded. Accessors that answer a packet's
// number are not.
// clang-format off
#define VEX_PLAIN_IMPORTS(X) \
  X(OrbCurrentBoard) X(OrbSpinlockLock) X(OrbSpinlockUnlock) X(OrbMemFreeInner) X(OrbMionAssert) X(OrbLog) \
  X(OrbIMDebugReport) X(ORB_ImAgentMsgFree) X(HostMbufSetNdHookIgnore) X(db_release_if_cfg_object) \
  X(db_release_arp_object) X(syslog)
// clang-format on

enum class Import : uint8_t {
#define VEX_IMPORT_ENUMERATOR(name) name,
  VEX_FALLIBLE_IMPORTS(VEX_IMPORT_ENUMERATOR) VEX_PLAIN_IMPORTS(VEX_IMPORT_ENUMERATOR)
#undef VEX_IMPORT_ENUMERATOR
      kCount
};
constexpr size_t kImportCount = static_cast<size_t>(Import::kCount);

std::string_view ImportName(Import import);
bool CanFail(Import import);
// Every import that has a failure result, for tests that let each of them fail in turn.
const std::vector<Import>& FallibleImports();

// How an armed call fails.
enum class FaultForm : uint8_t {
  kFail,    // the failure result: null, 0xFFFFFFFF, a non-zero code, "busy", -1
  kHollow,  // success is answered but nothing delivered: ORB_ChannelDcRecv 0 with a null buffer, a timer
            // created without an id, db_create_* 0 with a null handle. Elsewhere the same as kFail.
};

struct Fault {
  static constexpr uint64_t kForever = UINT64_MAX;
  Import import{};
  uint64_t skip = 0;          // calls that still succeed before the first failing one
  uint64_t times = kForever;  // failing calls after that; then calls succeed again
  uint64_t code = 0;          // the answer of a failing call with a numeric result; 0: the import's usual one
  FaultForm form = FaultForm::kFail;
};

// What an import has to do, as Watch() answers it. False: go on as usual.
class Outcome {
 public:
  constexpr Outcome() = default;
  constexpr Outcome(FaultForm form, uint64_t code)
      : code_(code), fails_(true), hollow_(form == FaultForm::kHollow) {}
  constexpr explicit operator bool() const { return fails_; }
  constexpr bool Hollow() const { return hollow_; }
  constexpr uint32_t Code(uint32_t usual = 1) const {
    return code_ != 0 ? static_cast<uint32_t>(code_) : usual;
  }
  constexpr uint64_t Code64(uint64_t usual) const { return code_ != 0 ? code_ : usual; }

 private:
  uint64_t code_ = 0;
  bool fails_ = false;
  bool hollow_ = false;
};

// One recorded call: the import and its first arguments as numbers (pointers by their address).
struct Call {
  Import import;
  std::array<uint64_t, 4> args;
  bool failed;
};

class FaultTable {
 public:
  void Arm(const Fault& fault);  // replaces what was armed for that import
  void FailAlways(Import import) { Arm({.import = import}); }
  void FailNth(Import import, uint64_t n) { Arm({.import = import, .skip = n - 1, .times = 1}); }  // n from 1
  void FailFrom(Import import, uint64_t n) { Arm({.import = import, .skip = n - 1}); }
  void Disarm(Import import);
  void DisarmAll();

  // Counting runs while anything is armed, recording is on or StartCounting was called.
  void StartCounting();
  uint64_t Calls(Import import) const;

  void StartRecording();
  std::vector<Call> TakeRecorded();  // in the order of the calls; recording goes on
  void Reset();                      // nothing armed, counted or recorded

  Outcome Enter(Import import, const std::array<uint64_t, 4>& args);  // the slow half of Watch()

 private:
  void Publish();  // recomputes the word that the fast path reads; caller holds mutex_
  struct Armed {
    bool on = false;
    Fault fault;
  };
  mutable std::mutex mutex_;
  std::array<Armed, kImportCount> armed_{};
  std::array<uint64_t, kImportCount> calls_{};
  std::vector<Call> recorded_;
  bool counting_ = false;
  bool recording_ = false;
};
FaultTable& Faults();

// Non-zero while some import has to take the slow path. Writer: FaultTable; readers: every import, relaxed:
// tests arm before they act, and nothing else is published through it.
extern std::atomic<uint32_t> g_watchedImports;

namespace detail {
template <class T>
uint64_t AsNumber(T value) {
  if constexpr (std::is_pointer_v<T>) {
    return reinterpret_cast<uintptr_t>(value);
  } else {
    return static_cast<uint64_t>(value);
  }
}
}  // namespace detail

// First statement of every import.
template <class... Args>
inline Outcome Watch(Import import, Args... args) {
  static_assert(sizeof...(Args) <= 4);
  if (g_watchedImports.load(std::memory_order_relaxed) == 0) [[likely]]
    return {};
  return Faults().Enter(import, {detail::AsNumber(args)...});
}

}  // namespace vex::platform
