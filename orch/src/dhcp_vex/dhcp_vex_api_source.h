// dhcp_vex_api_source.h - the source path that every dhcp_vex_api file gives to framework calls.
#pragma once

namespace dhcp_vex {

inline constexpr char kApiSourcePath[] = "orch/src/dhcp_vex/dhcp_vex_api";
inline constexpr unsigned kAllocatorId = 129;  // the module's id in the framework's memory accounting

}  // namespace dhcp_vex
