// dhcp_vex_pkt_diag.h - the diagnostic outputs: per-packet trace, packet dump, debug channel, diagnostic
// record. In:  texts and packets from any thread. Out: the framework's log services, each behind its own
// gate. Nothing here changes what becomes of a packet, and every failure only loses that one output.
#pragma once

#include <cstdarg>

#include "dhcp_vex_export.h"
#include "dhcp_vex_platform.h"

inline constexpr uint32_t DHCP_DIAG_SEND = 0;     // dump direction: out to the data plane
inline constexpr uint32_t DHCP_DIAG_RECEIVE = 1;  // dump direction: in from the host hook

DHCP_VEX_API uint8_t g_dhcpVexDebugSwitch;  // non-zero: DhcpVexDebugOut writes. Writer: configuration service
DHCP_VEX_API uint32_t g_dhcpPktDump;        // non-zero: packets are dumped. Written from outside only

// Formats at most 1023 characters and prints them to the per-packet trace, whatever the switches say. A
// negative formatting result, else HostDiagPrintf's.
DHCP_VEX_API int32_t DHCPDiagPrintf(const char* format, ...) __attribute__((format(printf, 1, 2)));
// At most 128 bytes of buffer memory from `offset` behind the packet's first byte, as one log entry.
DHCP_VEX_API void DhcpDiagDumpPacket(OrbMbuf* pkt, uint32_t offset, uint32_t direction);
// Behind the debug switch; a text that does not fit 1024 bytes is not reported. `level` is not used.
DHCP_VEX_API void DhcpVexDebugOut(uint32_t level, const char* format, ...)
    __attribute__((format(printf, 2, 3)));
// No gate: for rare events. `level` is not used.
DHCP_VEX_API void DhcpVexDiagLog(uint32_t level, const char* format, ...)
    __attribute__((format(printf, 2, 3)));
// Stores the low 8 bits.
DHCP_VEX_API void DhcpVexSetDbgSwitch(uint32_t value);

// Macros, so that the compiler checks each format against its arguments; arguments are evaluated up to twice.

// A diagnostic of the packet path: to the trace when the packet is marked for it (the mark is 8 bits wide),
// then always to the debug channel.
#define DHCP_LOG_PAIR(pkt, ...)                                                                    \
  do {                                                                                             \
    OrbMbuf* const markedPkt = (pkt);                                                              \
    if (markedPkt != nullptr && static_cast<uint8_t>(HostMbufGetHostDiagSwitch(markedPkt)) != 0) { \
      DHCPDiagPrintf(__VA_ARGS__);                                                                 \
    }                                                                                              \
    DhcpVexDebugOut(0, __VA_ARGS__);                                                               \
  } while (false)

// A rare event: to the debug channel, then to the diagnostic log.
#define DHCP_LOG_RARE(...)           \
  do {                               \
    DhcpVexDebugOut(0, __VA_ARGS__); \
    DhcpVexDiagLog(0, __VA_ARGS__);  \
  } while (false)
