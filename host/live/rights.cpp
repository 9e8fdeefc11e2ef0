// rights.cpp - capabilities(7) through libcap-ng.
#include "host/live/rights.h"

#include <cap-ng.h>
#include <sys/prctl.h>

#include <cerrno>
#include <cstring>

namespace vex::host::live {

std::string DropRights() {
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0)
    return std::string("no_new_privs: ") + std::strerror(errno);
  const bool had = capng_have_capability(CAPNG_PERMITTED, CAP_NET_RAW) != 0;
  capng_clear(CAPNG_SELECT_BOTH);
  if (had) capng_update(CAPNG_ADD, static_cast<capng_type_t>(CAPNG_EFFECTIVE | CAPNG_PERMITTED), CAP_NET_RAW);
  // The bounding set needs CAP_SETPCAP to shrink; without it nothing is lost, no_new_privs keeps it unused.
  const bool bounding = capng_apply(CAPNG_SELECT_BOUNDS) == 0;
  if (capng_apply(CAPNG_SELECT_CAPS) != 0) return std::string("capabilities: ") + std::strerror(errno);
  return bounding || errno == EPERM ? "" : std::string("bounding set: ") + std::strerror(errno);
}

}  // namespace vex::host::live
