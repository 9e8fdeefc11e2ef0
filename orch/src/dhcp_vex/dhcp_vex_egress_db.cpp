// dhcp_vex_egress_db.cpp - resolves a pseudo-wire's tunnel to a work interface and asks whether it is
// trusted. In:  tunnel id and type. Out: 0 send, 1 drop. Anything that cannot be resolved drops the packet.
// Database handles are released in the function that created them.
#include "dhcp_vex_egress_db.h"

#include <cstddef>

#include "dhcp_vex_api_snoop.h"
#include "dhcp_vex_egress_db_dynso.h"
#include "dhcp_vex_pkt_diag.h"

using namespace dhcp_vex;

namespace {

// Records that the object database reads. Host byte order.
struct KeyDescriptor {
  uint32_t kind;
  uint8_t zero[12];
};
static_assert(sizeof(KeyDescriptor) == 16);

struct ArpKey {
  uint32_t nextHop;
  uint32_t outIfIndex;
};
static_assert(sizeof(ArpKey) == 8);

constexpr KeyDescriptor kIfCfgKey = {0x10004, {}};
constexpr KeyDescriptor kArpKey = {0x10008, {}};
constexpr uint32_t kCreateArg = 3;  // the database's business
constexpr uint32_t kFirstInvalidVlan = 4095;

constexpr bool ValidVlan(uint32_t vlanId) { return vlanId != 0 && vlanId < kFirstInvalidVlan; }
static_assert(ValidVlan(1) && ValidVlan(4094) && !ValidVlan(4095) && !ValidVlan(0));

// What to do with an object handle when the scope that created it ends.
template <class Release>
class [[nodiscard]] ObjectGuard {
 public:
  ObjectGuard(void* handle, Release release) : handle_(handle), release_(release) {}
  ~ObjectGuard() { release_(handle_); }
  ObjectGuard(const ObjectGuard&) = delete;
  ObjectGuard& operator=(const ObjectGuard&) = delete;

 private:
  void* handle_;
  Release release_;
};

uint32_t ReadWorkIfIndex(void* arp, const ArpKey& key, uint32_t* workIfIndex) {
  const int32_t ret = db_read_obj(arp, &kArpKey, &key);
  if (ret != 0) {
    DhcpVexDebugOut(0, "[ERR][VEX-DHCP] Failed to read arp.(ret:%d, nextHopIpAddr:%u, outIfIndex:%u)", ret,
                    key.nextHop, key.outIfIndex);
    return DHCP_FAIL;
  }
  if (DHCP_db_get_arp_work_if_index(arp, workIfIndex) == 0) return DHCP_OK;
  DhcpVexDebugOut(0, "[ERR][VEX-DHCP] Failed to get work_if_index");
  return DHCP_FAIL;
}

uint32_t ReadVlanId(void* ifCfg, uint32_t ifIndex, uint32_t* vlanId) {
  int32_t ret = db_read_obj(ifCfg, &kIfCfgKey, &ifIndex);
  if (ret != 0) {
    DHCP_LOG_RARE("[ERR][VEX-DHCP] Failed to read if_cfg. ret:%d, ifindex:%u", ret, ifIndex);
    return DHCP_FAIL;
  }
  ret = db_get_if_cfg_vlan_id(ifCfg, vlanId);
  if (ret != 0) {
    DHCP_LOG_RARE("[ERR][VEX-DHCP]Failed to get vlanIdf. ret:%d, ifindex:%u", ret, ifIndex);
    return DHCP_FAIL;
  }
  return DHCP_OK;
}

}  // namespace

uint32_t DhcpVexCheckVplsPktSendPw(OrbMbuf* pkt, uint16_t vplsFlag, uint32_t tunnelId, uint32_t tunnelType) {
  if (vplsFlag == 0) return DHCP_OK;
  uint32_t outIfIndex = 0;
  uint32_t nextHop = 0;
  if (DhcpVexGetOutInterfaceAndNextHop(pkt, tunnelId, tunnelType, &outIfIndex, &nextHop) != 0)
    return DHCP_FAIL;
  uint32_t vlanId = 0;
  if (DhcpVexGetVlanId(outIfIndex, &vlanId) != 0 || !ValidVlan(vlanId)) {
    DhcpVexDebugOut(0, "[ERR][VEX-DHCP] No need to send vpls pkt to pw.(vlanId:%u)", vlanId);
    return DHCP_FAIL;
  }
  uint32_t workIfIndex = 0;
  if (DhcpVexGetWorkIfIndex(nextHop, outIfIndex, &workIfIndex) != 0) return DHCP_FAIL;
  DhcpVexDebugOut(0, "[INFO][VEX-DHCP] Snp over vpls, packet send pw.(ifIndex:%u, vlanId:%u)", workIfIndex,
                  vlanId);
  if (DhcpVexCheckIfSnpTrusted(workIfIndex, vlanId) == 1) return DHCP_OK;
  DhcpVexDebugOut(0, "[ERR][VEX-DHCP] No need to send pkt to pw for no trust port.");
  return DHCP_FAIL;
}

uint32_t DhcpVexGetVlanId(uint32_t ifIndex, uint32_t* vlanId) {
  void* ifCfg = nullptr;
  const int32_t ret = db_create_if_cfg_obj(kCreateArg, 0, &ifCfg);
  if (ret != 0) {
    DHCP_LOG_RARE("[ERR][VEX-DHCP] Failed to create if cfg object. ret:%d", ret);
    return DHCP_FAIL;
  }
  const ObjectGuard guard(ifCfg, db_release_if_cfg_object);
  return ReadVlanId(ifCfg, ifIndex, vlanId);
}

uint32_t DhcpVexGetWorkIfIndex(uint32_t nextHop, uint32_t outIfIndex, uint32_t* workIfIndex) {
  *workIfIndex = 0;
  void* arp = nullptr;
  if (DHCP_db_create_arp_obj(kCreateArg, 0, &arp) != 0) return DHCP_FAIL;
  const ObjectGuard guard(arp, DHCP_db_release_arp_object);
  return ReadWorkIfIndex(arp, {nextHop, outIfIndex}, workIfIndex);
}

uint32_t DhcpVexGetOutInterfaceAndNextHop(OrbMbuf* pkt, uint32_t tunnelId, uint32_t tunnelType,
                                          uint32_t* outIfIndex, uint32_t* nextHop) {
  const uint32_t ret = HostMbufGetOutIfByL2vpnTnl(pkt, tunnelId, tunnelType, outIfIndex, nextHop);
  if (ret == 0) return DHCP_OK;
  DHCP_LOG_RARE("[ERR][VEX-DHCP] Failed to Get out-interface by l2vpn tunnel info. ret:%u", ret);
  return DHCP_FAIL;
}
