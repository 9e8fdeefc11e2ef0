// dhcp_vex_pkt_source.h - the source path that every dhcp_vex_pkt file gives to framework calls.
#pragma once

namespace dhcp_vex {

inline constexpr char kPktSourcePath[] = "orch/src/dhcp_vex/dhcp_vex_pkt";

}  // namespace dhcp_vex
