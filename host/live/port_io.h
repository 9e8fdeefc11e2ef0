// port_io.h - one Linux interface as a switch port: frames in through a receive ring, frames out in batches.
// In:  an interface name; frames to send. Out: received frames with their outer VLAN tag back in place and
// their checksums complete; counters. Super-frames of local senders (segmentation offload) keep their offload
// header, so that the kernel cuts them up on the way out.
// Threads: one thread receives; any thread may send and read counters.
#pragma once

#include <linux/if_packet.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace vex::host::live {

inline constexpr size_t kTagSize = 4;
inline constexpr size_t kMacsSize = 12;  // the two addresses in front of the tag

// What the kernel's offload header (PACKET_VNET_HDR) says; host byte order. linux/virtio_net.h is no C++.
struct OffloadHeader {
  static constexpr uint8_t kNeedsChecksum = 1;
  static constexpr uint8_t kNotSegmented = 0;
  uint8_t flags = 0;
  uint8_t gso_type = kNotSegmented;
  uint16_t hdr_len = 0;
  uint16_t gso_size = 0;
  uint16_t csum_start = 0;
  uint16_t csum_offset = 0;
};
static_assert(sizeof(OffloadHeader) == 10);

// A received frame. The bytes may be changed by the receiver and stay valid until Release().
struct RxFrame {
  std::span<uint8_t> bytes;
  OffloadHeader offload{};  // gso_type other than none: a super-frame, offsets as in bytes
  bool super() const { return offload.gso_type != OffloadHeader::kNotSegmented; }
};

struct PortIoStats {
  uint64_t rx_frames = 0;
  uint64_t rx_bytes = 0;
  uint64_t tx_frames = 0;
  uint64_t tx_bytes = 0;
  uint64_t tx_failed = 0;     // refused by the kernel: link down, queue full, longer than the MTU
  uint64_t kernel_drops = 0;  // the ring was full
  uint64_t oversize = 0;      // frames that did not fit the ring nor the socket's receive buffer
  uint64_t checksums = 0;     // partial checksums completed
  uint64_t link_events = 0;   // the interface went down or away
};

// How a frame's outer tag changes on its way out.
struct TagEdit {
  enum class Kind : uint8_t { kKeep, kRemove, kInsert, kReplace } kind = Kind::kKeep;
  uint16_t tag = 0;  // control word of the new tag, host byte order
};

// One frame laid out for the kernel: offload header, addresses, new tag, the rest. Points into the frame.
class Outgoing {
 public:
  // False: too short to be an Ethernet frame.
  bool Build(std::span<const uint8_t> frame, const OffloadHeader& offload, TagEdit edit);
  void Describe(msghdr& message);

 private:
  OffloadHeader offload_;
  std::array<uint8_t, kTagSize> tag_;
  std::array<iovec, 4> parts_;
  size_t count_ = 0;
};

class PortSocket {
 public:
  // Opens the interface, promiscuous. Throws InputError naming the interface and what to do.
  explicit PortSocket(const std::string& interface);
  ~PortSocket();
  PortSocket(const PortSocket&) = delete;
  PortSocket& operator=(const PortSocket&) = delete;

  const std::string& interface() const { return interface_; }
  int fd() const { return fd_; }  // readable: frames wait, or an error does

  // Up to `budget` frames, fewer when no more are there. They stay valid until Release(), which comes before
  // the next Receive() and before fd() is polled.
  std::span<RxFrame> Receive(size_t budget);
  void Release();
  // An interface that was deleted takes its port along. Looks whether that has happened, or whether there is
  // one of that name again, which the port then takes; answers what is new. One thread at a time.
  enum class Change : uint8_t { kNone, kGone, kBack };
  Change Follow();

  // After an error event: clears and counts it. Otherwise fd() would stay readable for ever.
  void ClearError();

  // One frame, at once. False: refused by the kernel, counted.
  bool Send(std::span<const uint8_t> frame, TagEdit edit);

  PortIoStats Stats() const;

 private:
  friend class TxQueue;
  struct Tag {
    uint16_t tpid = 0;  // 0: the kernel took no tag off
    uint16_t tci = 0;
  };
  void Configure(int ifindex);
  bool Attach(int ifindex);  // promiscuous, and bound to it
  tpacket2_hdr* SlotAt(size_t index) const;
  void TakeSlot(uint8_t* slot, const tpacket2_hdr& header);
  bool TakeBig();
  void Deliver(std::span<uint8_t> bytes, OffloadHeader offload, Tag tag);

  static constexpr size_t kSlotSize = 2048;
  static constexpr size_t kSlots = 1024;
  const std::string interface_;
  int fd_ = -1;
  bool gone_ = false;
  uint8_t* ring_ = nullptr;
  size_t next_ = 0;   // slot that the kernel fills next, or has filled
  size_t taken_ = 0;  // slots before it that are not yet given back
  std::vector<RxFrame> frames_;
  std::vector<std::unique_ptr<uint8_t[]>> big_;  // frames longer than a slot, a buffer each, kept for reuse
  size_t big_used_ = 0;

  // Receiving counters have one writer, sending counters any number.
  std::atomic<uint64_t> rx_frames_{0}, rx_bytes_{0}, oversize_{0}, checksums_{0}, link_events_{0};
  std::atomic<uint64_t> tx_frames_{0}, tx_bytes_{0}, tx_failed_{0};
  mutable std::atomic<uint64_t> kernel_drops_{0};
};

// Frames on their way to one port, sent together. The bytes must stay where they are until Flush().
class TxQueue {
 public:
  static constexpr size_t kCapacity = 64;
  explicit TxQueue(PortSocket& port);
  TxQueue(const TxQueue&) = delete;
  TxQueue& operator=(const TxQueue&) = delete;

  void Add(std::span<const uint8_t> frame, const OffloadHeader& offload, TagEdit edit);  // flushes when full
  void Flush();
  bool empty() const { return count_ == 0; }

 private:
  PortSocket& port_;
  size_t count_ = 0;
  std::array<Outgoing, kCapacity> frames_;
  std::array<mmsghdr, kCapacity> messages_;
};

// An offload header for a frame whose first bytes moved by `by` (a tag more or less).
OffloadHeader Shifted(OffloadHeader offload, int by);

}  // namespace vex::host::live
