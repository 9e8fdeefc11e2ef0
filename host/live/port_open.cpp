// port_open.cpp - a packet socket (packet(7)) with a TPACKET_V2 ring, bound to an interface.
// In:  an interface's name. Out: a socket that hears every frame of it, also after the interface was deleted
// and made again. The ring of version 2 wakes its reader for every frame; version 3 would hold frames back to
// fill blocks. A frame longer than a slot is also put on the socket's own queue (PACKET_COPY_THRESH).
#include <arpa/inet.h>
#include <fmt/format.h>
#include <linux/if_ether.h>
#include <net/if.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "host/error.h"
#include "host/live/port_io.h"

namespace vex::host::live {
namespace {

constexpr size_t kBlockSize = 64 * 1024;
constexpr int kSocketBuffer = 4 << 20;  // for frames longer than a slot

void Require(bool done, const std::string& interface, const char* step) {
  if (done) return;
  const int error = errno;
  const char* advice = error == EPERM ? "; run as root or with CAP_NET_RAW" : "";
  throw InputError(fmt::format("port {}: {}: {}{}", interface, step, std::strerror(error), advice));
}

template <class T>
bool SetOption(int fd, int level, int option, const T& value) {
  return setsockopt(fd, level, option, &value, sizeof value) == 0;
}

}  // namespace

PortSocket::PortSocket(const std::string& interface) : interface_(interface) {
  const unsigned ifindex = if_nametoindex(interface.c_str());
  if (ifindex == 0) {
    throw InputError(fmt::format(
        "port {}: there is no such interface; `ip link` lists those of this namespace", interface));
  }
  fd_ = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  Require(fd_ >= 0, interface_, "opening a packet socket");
  try {
    Configure(static_cast<int>(ifindex));
  } catch (...) {
    if (ring_ != nullptr) munmap(ring_, kSlots * kSlotSize);
    close(fd_);
    throw;
  }
}

void PortSocket::Configure(int ifindex) {
  const int on = 1, version = TPACKET_V2;
  Require(SetOption(fd_, SOL_PACKET, PACKET_VERSION, version), interface_, "choosing the ring's version");
  Require(SetOption(fd_, SOL_PACKET, PACKET_VNET_HDR, on), interface_, "asking for offload headers");
  Require(SetOption(fd_, SOL_PACKET, PACKET_AUXDATA, on), interface_, "asking for VLAN tags");
  Require(SetOption(fd_, SOL_PACKET, PACKET_IGNORE_OUTGOING, on), interface_,
          "ignoring what it sends itself");
  Require(SetOption(fd_, SOL_PACKET, PACKET_COPY_THRESH, on), interface_, "asking for long frames");
  if (!SetOption(fd_, SOL_SOCKET, SO_RCVBUFFORCE, kSocketBuffer)) {
    // Without CAP_NET_ADMIN as much as the system grants; only frames longer than a slot need it.
    Require(SetOption(fd_, SOL_SOCKET, SO_RCVBUF, kSocketBuffer), interface_, "setting the receive buffer");
  }
  const tpacket_req request{.tp_block_size = kBlockSize,
                            .tp_block_nr = kSlots * kSlotSize / kBlockSize,
                            .tp_frame_size = kSlotSize,
                            .tp_frame_nr = kSlots};
  Require(SetOption(fd_, SOL_PACKET, PACKET_RX_RING, request), interface_, "making the receive ring");
  void* const memory = mmap(nullptr, kSlots * kSlotSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd_, 0);
  Require(memory != MAP_FAILED, interface_, "mapping the receive ring");
  ring_ = static_cast<uint8_t*>(memory);

  Require(Attach(ifindex), interface_, "binding to the interface in promiscuous mode");
}

bool PortSocket::Attach(int ifindex) {
  const packet_mreq promiscuous{
      .mr_ifindex = ifindex, .mr_type = PACKET_MR_PROMISC, .mr_alen = 0, .mr_address = {}};
  if (!SetOption(fd_, SOL_PACKET, PACKET_ADD_MEMBERSHIP, promiscuous)) return false;
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(ETH_P_ALL);
  address.sll_ifindex = ifindex;
  return bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

// The kernel unbinds the socket of an interface that is gone and leaves -1 where its number was. Bound again,
// it has its ring as before.
PortSocket::Change PortSocket::Follow() {
  sockaddr_ll address{};
  socklen_t length = sizeof address;
  if (getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &length) != 0 || address.sll_ifindex > 0)
    return Change::kNone;
  const unsigned ifindex = if_nametoindex(interface_.c_str());
  if (ifindex != 0 && Attach(static_cast<int>(ifindex))) {
    gone_ = false;
    return Change::kBack;
  }
  return std::exchange(gone_, true) ? Change::kNone : Change::kGone;
}

PortSocket::~PortSocket() {
  munmap(ring_, kSlots * kSlotSize);
  close(fd_);
}

}  // namespace vex::host::live
