// dhcp_vex_pkt_deliver.cpp - the 24-byte header, the service's channels and threads, inner messages.
// In:  packets from the hook, bytes from the timers. Out: channel sends, wake-ups, counters 4 to 7.
// Names are resolved on first use and cached in single words; two threads that resolve the same entry store
// the same value. A failed look-up stores nothing: the entry stays unresolved, so the next use tries again,
// and a thread that resolved it meanwhile still finds its value when it sends.
#include "dhcp_vex_pkt_deliver.h"

#include "dhcp_vex_api.h"
#include "dhcp_vex_guard.h"
#include "dhcp_vex_pkt_channel.h"
#include "dhcp_vex_pkt_diag.h"
#include "dhcp_vex_pkt_source.h"
#include "dhcp_vex_shared_word.h"

using namespace dhcp_vex;

namespace {

constexpr uint32_t kSendArg = 1000;  // the framework's business; the same on every send
constexpr uint32_t kThreads = 5;
constexpr uint32_t kChannels = 12;
constexpr uint32_t kHighestChannel = 12;  // the bound that a packet's channel is tested against
constexpr uint32_t kInnerThread = 0;

struct ServiceThread {
  const char* name;
  void* handle;  // null: unresolved
};

struct ServiceChannel {
  const char* name;
  uint32_t id;  // DHCP_NONE: unresolved
};

constinit ServiceThread g_threads[kThreads] = {{"thread/vex2dhcp", nullptr},
                                               {"thread/vex2dhcp1", nullptr},
                                               {"thread/vex2dhcp2", nullptr},
                                               {"thread/vex2dhcp3", nullptr},
                                               {"thread/vex2dhcp4", nullptr}};

constinit ServiceChannel g_channels[kChannels] = {
    {"channel/vex2dhcp0", DHCP_NONE}, {"channel/vex2dhcp1", DHCP_NONE},  {"channel/vex2dhcp2", DHCP_NONE},
    {"channel/vex2dhcp3", DHCP_NONE}, {"channel/vex2dhcp4", DHCP_NONE},  {"channel/vex2dhcp5", DHCP_NONE},
    {"channel/vex2dhcp6", DHCP_NONE}, {"channel/vex2dhcp7", DHCP_NONE},  {"channel/vex2dhcp8", DHCP_NONE},
    {"channel/vex2dhcp9", DHCP_NONE}, {"channel/vex2dhcp10", DHCP_NONE}, {"channel/vex2dhcp11", DHCP_NONE}};

constinit uint64_t g_ingressSequence = 0;  // any delivering thread adds

constexpr DhcpInnerHead kInnerHead = {.intfType = 32, .intfLen = sizeof(DhcpInnerHead), .zero4 = {}};

constexpr uint32_t ThreadOf(uint32_t channel) {
  if (channel < DHCP_CHN_DHCP_INST0) return 0;
  if (channel < DHCP_CHN_ICMP_INST0) return channel - 2;
  return channel - 6;
}
static_assert(ThreadOf(2) == 0 && ThreadOf(3) == 1 && ThreadOf(6) == 4 && ThreadOf(7) == 1 &&
              ThreadOf(11) == 5);

bool ResolveThread(ServiceThread& thread) {
  if (Load(thread.handle) != nullptr) return true;
  void* const handle = ORB_ThreadInfoGetByName(thread.name);
  if (handle != nullptr) {
    Store(thread.handle, handle);
    return true;
  }
  OrbLog(1, "[DHCP-vex]DhcpPktGetChnID get thread info id failed.");
  Count(DhcpStat::kGetThreadInfoFail);
  return false;
}

bool ResolveChannel(ServiceChannel& channel) {
  if (Load(channel.id) != DHCP_NONE) return true;
  const uint32_t id = ORB_ChannelGetIdByName(channel.name);
  if (id != DHCP_NONE) {
    Store(channel.id, id);
    return true;
  }
  OrbLog(1, "[DHCP-vex]DhcpPktGetChnID get channel id by name id failed.");
  Count(DhcpStat::kGetChnIdFail);
  return false;
}

// Both entries are resolved. The reader is woken in any case: what the channel holds already is waiting too.
bool SendAndWake(OrbMbuf* pkt, uint32_t threadIndex, uint32_t channel) {
  const uint32_t ret = ORB_ChannelDcSend(Load(g_channels[channel].id), pkt, kSendArg);
  ORB_EventWrite(Load(g_threads[threadIndex].handle), 1u << channel);
  return ret == 0;
}

// Makes room in front of the packet's data and copies a header into it.
template <class Header>
bool Prepend(OrbMbuf* pkt, const Header& header, uint32_t line) {
  if (MbufPktAddHead(pkt, sizeof(header), kPktSourcePath, line) != 0 || pkt->bufAddr == nullptr) return false;
  return memcpy_s(pkt->bufAddr + pkt->dataOff, sizeof(header), &header, sizeof(header)) == 0;
}

OrbMbuf* BuildInnerMessage(const uint8_t* bytes, uint32_t length) {
  OwnedPacket message(MbufPktNewFromData(bytes, length, kPktSourcePath, __LINE__), kPktSourcePath, __LINE__);
  return message && Prepend(message.Get(), kInnerHead, __LINE__) ? message.Release() : nullptr;
}

}  // namespace

uint32_t DhcpPktSendToDhcp(OrbMbuf* pkt, uint32_t pktType) {
  const uint32_t channel = DhcpPktGetChnID(pkt, pktType);
  if (channel == DHCP_NONE) return DHCP_SEND_NO_CHANNEL;
  if (DhcpPktAppendIgressIntf(pkt) != 0) return DHCP_SEND_REJECTED;
  return channel == DHCP_CHN_ALL_ICMP ? DhcpPktSendToAllIcmpChanel(pkt)
                                      : DhcpPktSendToOneDhcpSvc(pkt, channel);
}

uint32_t DhcpPktSendToOneDhcpSvc(OrbMbuf* pkt, uint32_t channel) {
  const uint32_t threadIndex = ThreadOf(channel);
  if (channel > kHighestChannel || threadIndex >= kThreads) {
    DHCP_LOG_PAIR(pkt, "DHCP pkt send, ThreadInfoId %u or chnId %u is error.", threadIndex, channel);
    return DHCP_SEND_REJECTED;
  }
  const uint32_t unresolved = DhcpVexSetThreadIdAndChnnelId(threadIndex, channel);
  if (unresolved != DHCP_OK) {
    DHCP_LOG_PAIR(pkt, "DHCP pkt get dhcp chnid %u failed.", channel);
    return unresolved;
  }
  if (SendAndWake(pkt, threadIndex, channel)) return DHCP_OK;
  DHCP_LOG_PAIR(pkt, "DHCP pkt send to dhcp chnid %u failed.", channel);
  Count(DhcpStat::kPktSendFail);
  return DHCP_SEND_REFUSED;
}

uint32_t DhcpPktSendToAllIcmpChanel(OrbMbuf* pkt) {
  const uint32_t instances = DhcpVexGetSpecs(DHCP_SPEC_MULTICORE_SVC_NUM);
  if (instances > DHCP_MAX_INSTANCES) return DHCP_SEND_REJECTED;
  const OwnedPacket original(pkt, kPktSourcePath, __LINE__);
  for (uint32_t k = 0; k < instances; ++k) {
    OwnedPacket copy(OrbMbufPktCopyNew(pkt, kPktSourcePath, __LINE__), kPktSourcePath, __LINE__);
    if (copy && DhcpPktSendToOneDhcpSvc(copy.Get(), DHCP_CHN_ICMP_INST0 + k) == DHCP_OK) copy.Release();
  }
  return DHCP_OK;
}

uint32_t DhcpPktAppendIgressIntf(OrbMbuf* pkt) {
  const DhcpIngressHeader header = {sizeof(DhcpIngressHeader), 0, Add(g_ingressSequence, 1), 0};
  return Prepend(pkt, header, __LINE__) ? DHCP_OK : DHCP_FAIL;
}

uint32_t DhcpVexSetThreadIdAndChnnelId(uint32_t threadIndex, uint32_t channel) {
  if (!ResolveThread(g_threads[threadIndex])) return DHCP_SEND_NO_THREAD;
  if (!ResolveChannel(g_channels[channel])) return DHCP_SEND_NO_CHANNEL;
  return DHCP_OK;
}

OrbMbuf* DhcpVexConstructOrbMbuf(const uint8_t* bytes, uint32_t length) {
  if (bytes == nullptr || length == 0) return nullptr;
  OrbMbuf* const message = BuildInnerMessage(bytes, length);
  if (message == nullptr) OrbMionAssert(kPktSourcePath, __LINE__, nullptr);
  return message;
}

uint32_t DhcpVexSendInnerMsgToDhcp(const uint8_t* bytes, uint32_t length) {
  OwnedPacket message(DhcpVexConstructOrbMbuf(bytes, length), kPktSourcePath, __LINE__);
  if (!message) return DHCP_SEND_REJECTED;
  const uint32_t unresolved = DhcpVexSetThreadIdAndChnnelId(kInnerThread, DHCP_CHN_INNER);
  if (unresolved != DHCP_OK) return unresolved;
  if (SendAndWake(message.Get(), kInnerThread, DHCP_CHN_INNER)) {
    message.Release();
    return DHCP_OK;
  }
  Count(DhcpStat::kInnerMsgSendFail);
  return DHCP_SEND_REFUSED;
}
