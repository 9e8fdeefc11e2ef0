// dhcp_vex_pkt_return.cpp - drains the return channel in bounded batches.
// In:  messages behind an egress header, untrusted: nothing outside a message's buffer memory is read.
// Out: user-binding notifications, ND uploads, output packets; counters 1 and 3. Allocates nothing; waits
// only for the snooping lock inside the VPLS trust check. Owns every message it receives until it hands it
// over or frees it.
#include "dhcp_vex_pkt_return.h"

#include <atomic>
#include <cstring>

#include "dhcp_vex_api.h"
#include "dhcp_vex_api_event.h"
#include "dhcp_vex_egress_db.h"
#include "dhcp_vex_guard.h"
#include "dhcp_vex_pkt.h"
#include "dhcp_vex_pkt_diag.h"
#include "dhcp_vex_pkt_egress.h"
#include "dhcp_vex_pkt_source.h"
#include "dhcp_vex_shared_word.h"

using namespace dhcp_vex;

uint32_t g_dhcpPktLogVexBarrier = 0;

namespace {

constexpr uint32_t kBatch = 33;

// Only one drain at a time; a second one leaves its messages to the first.
class [[nodiscard]] DrainBarrier {
 public:
  DrainBarrier() : entered_(Swap(0, 1)) {}
  ~DrainBarrier() {
    if (entered_) Swap(1, 0);
  }
  explicit operator bool() const { return entered_; }
  DrainBarrier(const DrainBarrier&) = delete;
  DrainBarrier& operator=(const DrainBarrier&) = delete;

 private:
  // Acquire on entering pairs with release on leaving: this drain sees what the last one wrote.
  static bool Swap(uint32_t from, uint32_t to) {
    return std::atomic_ref<uint32_t>(g_dhcpPktLogVexBarrier)
        .compare_exchange_strong(from, to, std::memory_order_acq_rel, std::memory_order_acquire);
  }
  const bool entered_;
};

// The three handlers answer whether the message was handled to its end, and so counts.

bool DropDamaged(Bytes message, const char* what) {
  DhcpVexDebugOut(0, "[ERR][VEX-DHCP] Drop message from dhcp, %s.(bytes:%u)", what,
                  static_cast<uint32_t>(message.size()));
  return false;
}

bool NotifyUserBind(Bytes message) {
  const std::optional<Bytes> body = UserBindBody(message);
  if (!body) return DropDamaged(message, "user binding body lies outside the buffer");
  DhcpVexEventCallBackNotify(DHCP_EVENT_USER_BIND, body->data());
  return true;
}

bool UploadNd(OwnedPacket& pkt, uint16_t intfLen) {
  DHCP_LOG_PAIR(pkt.Get(), "DHCP process ND upload ldm");
  if (MbufPktCutHead(pkt.Get(), intfLen, kPktSourcePath, __LINE__) != 0) {
    DHCP_LOG_PAIR(pkt.Get(), "DHCP process ND upload ldm, cut head failed. (intfLen=%u)", intfLen);
    return false;
  }
  HostMbufSetNdHookIgnore(pkt.Get());
  HostUploadLdmByHook(pkt.Release());
  return true;
}

bool OutputPacket(OwnedPacket& pkt, Bytes message) {
  DhcpHostEgressIntfInfo info;
  if (message.size() < sizeof(info)) return DropDamaged(message, "packet header lies outside the buffer");
  std::memcpy(&info, message.data(), sizeof(info));
  if (DhcpVexCheckVplsPktSendPw(pkt.Get(), info.vplsFlag, info.tunnelId, info.tunnelType) != 0) return false;
  if (MbufPktCutHead(pkt.Get(), info.intfLen, kPktSourcePath, __LINE__) != 0) {
    Count(DhcpStat::kEgressCutHeadFail);
    return false;
  }
  DhcpDiagDumpPacket(pkt.Get(), 0, DHCP_DIAG_SEND);
  HostEgressDesc desc = {};                        // every packet gets only its own settings
  DhcpHostEgressIntfTrans(message.data(), &desc);  // the bytes cut off stay readable
  Dhcp2VexPacketOutput(pkt.Release(), &desc);
  return true;
}

bool HandleMessage(OwnedPacket& pkt) {
  const Bytes message = BufferBytes(pkt.Get());
  const std::optional<MessageKind> kind = ReadMessageKind(message);
  if (!kind) return DropDamaged(message, "no room for its kind");
  switch (kind->intfType) {
    case DHCP_MSG_USER_BIND:
      return NotifyUserBind(message);
    case DHCP_MSG_ND_UPLOAD:
      return UploadNd(pkt, kind->intfLen);
    default:
      return OutputPacket(pkt, message);
  }
}

// True when more may be waiting: the batch was used up, or a receive succeeded without a packet. Such a
// receive ends the batch, so that a channel that answers nothing else cannot hold the thread for ever.
bool DrainBatch() {
  for (uint32_t handled = 0; handled < kBatch;) {
    OrbMbuf* received = nullptr;
    if (ORB_ChannelDcRecv(Load(g_dhcpToVexChn), &received) != 0) return false;
    if (received == nullptr) return true;
    OwnedPacket pkt(received, kPktSourcePath, __LINE__);
    if (!HandleMessage(pkt)) continue;
    Count(DhcpStat::kSvcMsg);
    ++handled;
  }
  return true;
}

}  // namespace

void Dhcp2VexChnEvtCallback(void) {
  {
    const DrainBarrier barrier;
    if (!barrier || !DrainBatch()) return;
  }
  // The next drain may start on another thread as soon as the event is written: it must find the barrier
  // free.
  std::atomic_thread_fence(std::memory_order_seq_cst);
  ORB_ChannelEventWritePublic(DHCP_RETURN_CHANNEL_EVENT);
}
