// dhcp_vex_egress_db.h - may a packet leave through a VPLS pseudo-wire.
// In:  the tunnel of an outgoing packet; the object database, the optional ARP database, the snooping store.
// Out: 0 send, 1 drop; a dropped packet stays its caller's. Runs on the return channel's thread; the trust
// test waits for g_dhcpVexSnpInfoUseLock. All integers in host byte order.
#pragma once

#include "dhcp_vex_export.h"
#include "dhcp_vex_platform.h"

// Only a packet with a non-zero vplsFlag is examined: its tunnel's work interface must be trusted in its
// VLAN.
DHCP_VEX_API uint32_t DhcpVexCheckVplsPktSendPw(OrbMbuf* pkt, uint16_t vplsFlag, uint32_t tunnelId,
                                                uint32_t tunnelType);
// The interface's VLAN id from its configuration object. 0 or 1; *vlanId is the database's to write.
DHCP_VEX_API uint32_t DhcpVexGetVlanId(uint32_t ifIndex, uint32_t* vlanId);
// The work interface of a next hop's ARP entry; *workIfIndex becomes 0 first. 0 or 1.
DHCP_VEX_API uint32_t DhcpVexGetWorkIfIndex(uint32_t nextHop, uint32_t outIfIndex, uint32_t* workIfIndex);
// What carries the tunnel. 0 or 1, logged.
DHCP_VEX_API uint32_t DhcpVexGetOutInterfaceAndNextHop(OrbMbuf* pkt, uint32_t tunnelId, uint32_t tunnelType,
                                                       uint32_t* outIfIndex, uint32_t* nextHop);
