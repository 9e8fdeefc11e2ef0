// vex_mlag.cpp - libvex_mlag.so, the optional M-LAG library, as a front of the stand-in's record of sends.
// In:  packets of application packet type 1; they stay the caller's. Out: a note in the loading program.
// VEX_WITHOUT_SEND leaves the symbol out.
#include "platform/objects.h"

#ifndef VEX_WITHOUT_SEND
extern "C" __attribute__((visibility("default"))) uint32_t MLAG_VEX_SendPacketPublic(OrbMbuf* packet,
                                                                                     uint32_t arg) {
  return VexPlatformMlagSend(packet, arg);
}
#endif
