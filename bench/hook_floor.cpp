// hook_floor.cpp - see hook_floor.h.
#include "bench/hook_floor.h"

#include <ctime>

FloorTarget g_floorTarget = {};

namespace {

constexpr char kPath[] = "bench";
constexpr uint32_t kHeader = 24;
constexpr uint32_t kTaken = 0x1000000;
constexpr uint32_t kSendArg = 1000;

// A word that every answer goes into, so that no call can be left out.
volatile uint64_t g_answers = 0;

template <class T>
void Keep(T answer) {
  g_answers = (uint64_t)answer;  // pointers and numbers alike
}

void Classify(OrbMbuf* pkt) {
  Keep(HostMbufIsNdHookIgnore(pkt));
  Keep(HostMbufGetPktAppType(pkt));
  Keep(HostMbufGetL4DstPort(pkt));
  Keep(HostMbufGetMngIfFlag(pkt));
  Keep(HostMbufGetCauseAction(pkt));
}

void SnoopingGate(OrbMbuf* pkt) {
  static OrbSpinlock lock = {};
  Keep(HostMbufGetOectrlIfIndex(pkt));
  Keep(HostMbufGetVlanTag(pkt));
  Keep(OrbSpinlockTrylock(&lock));
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  Keep(now.tv_nsec);
  Keep(HostMbufGetPktAppType(pkt));
  OrbSpinlockUnlock(&lock);
}

void Deliver(OrbMbuf* pkt) {
  static const uint8_t header[kHeader] = {kHeader};
  Keep(HostMbufGetAppPktType(pkt));
  Keep(HostMbufGetL2HeadLength(pkt));
  Keep(HostMbufGetProtoType(pkt));
  Keep(MbufPktAddHead(pkt, kHeader, kPath, __LINE__));
  Keep(memcpy_s(pkt->bufAddr + pkt->dataOff, kHeader, header, kHeader));
  Keep(ORB_ChannelDcSend(g_floorTarget.channel, pkt, kSendArg));
  Keep(ORB_EventWrite(g_floorTarget.thread, g_floorTarget.events));
}

}  // namespace

uint32_t FloorUnwanted(OrbMbuf* pkt) {
  Keep(HostMbufIsNdHookIgnore(pkt));
  Keep(HostMbufGetPktAppType(pkt));
  return 0;
}

uint32_t FloorRefused(OrbMbuf* pkt) {
  Classify(pkt);
  SnoopingGate(pkt);
  return 0;
}

uint32_t FloorWanted(OrbMbuf* pkt) {
  Classify(pkt);
  SnoopingGate(pkt);
  Deliver(pkt);
  return kTaken;
}
