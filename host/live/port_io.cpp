// port_io.cpp - frames in from the ring and the socket's own queue, frames out with sendmmsg.
// Both directions carry an offload header (PACKET_VNET_HDR). The ring itself is made in port_open.cpp.
#include "host/live/port_io.h"

#include <arpa/inet.h>
#include <linux/if_ether.h>

#include <cerrno>
#include <cstring>
#include "host/live/checksum.h"

namespace vex::host::live {
namespace {

constexpr size_t kBigSize = 65536 + 64;  // the longest super-frame with its header and tag
constexpr size_t kBigPerBatch = 16;
constexpr uint16_t kNone = 0;

void Add(std::atomic<uint64_t>& counter, uint64_t by) { counter.fetch_add(by, std::memory_order_relaxed); }
uint64_t Get(const std::atomic<uint64_t>& counter) { return counter.load(std::memory_order_relaxed); }

}  // namespace

OffloadHeader Shifted(OffloadHeader offload, int by) {
  if ((offload.flags & OffloadHeader::kNeedsChecksum) != 0) {
    offload.csum_start = static_cast<uint16_t>(offload.csum_start + by);
  }
  if (offload.hdr_len != 0) offload.hdr_len = static_cast<uint16_t>(offload.hdr_len + by);
  return offload;
}

// ---- Receiving -----------------------------------------------------------------------------------------

tpacket2_hdr* PortSocket::SlotAt(size_t index) const {
  return reinterpret_cast<tpacket2_hdr*>(ring_ + (index % kSlots) * kSlotSize);
}

std::span<RxFrame> PortSocket::Receive(size_t budget) {
  frames_.clear();
  big_used_ = 0;
  while (frames_.size() < budget && taken_ < kSlots && big_used_ < kBigPerBatch) {
    tpacket2_hdr* const header = SlotAt(next_);
    // Acquire: pairs with the kernel's write of the status behind the frame.
    const uint32_t status = std::atomic_ref(header->tp_status).load(std::memory_order_acquire);
    if ((status & TP_STATUS_USER) == 0) break;
    ++next_;
    ++taken_;
    if ((status & TP_STATUS_COPY) != 0) {
      TakeBig();
    } else if (header->tp_snaplen < header->tp_len) {
      Add(oversize_, 1);
    } else {
      TakeSlot(reinterpret_cast<uint8_t*>(header), *header);
    }
  }
  // Readable without a frame in the ring: a long frame whose slot was lost would keep the socket readable.
  if (taken_ == 0) TakeBig();
  return frames_;
}

void PortSocket::Release() {
  for (; taken_ > 0; --taken_) {
    // Release: the frame has been read and sent before the kernel may fill the slot again.
    std::atomic_ref(SlotAt(next_ - taken_)->tp_status).store(TP_STATUS_KERNEL, std::memory_order_release);
  }
}

void PortSocket::TakeSlot(uint8_t* slot, const tpacket2_hdr& header) {
  uint8_t* const frame = slot + header.tp_mac;
  OffloadHeader offload;
  std::memcpy(&offload, frame - sizeof offload, sizeof offload);
  Tag tag;
  if ((header.tp_status & TP_STATUS_VLAN_VALID) != 0) {
    const bool named = (header.tp_status & TP_STATUS_VLAN_TPID_VALID) != 0;
    tag = {named ? header.tp_vlan_tpid : static_cast<uint16_t>(ETH_P_8021Q), header.tp_vlan_tci};
  }
  Deliver({frame, header.tp_snaplen}, offload, tag);
}

// The next frame of the socket's own queue. False: there is none.
bool PortSocket::TakeBig() {
  if (big_used_ == big_.size()) big_.push_back(std::make_unique_for_overwrite<uint8_t[]>(kBigSize));
  uint8_t* const room = big_[big_used_].get();
  OffloadHeader offload{};
  iovec parts[] = {{&offload, sizeof offload}, {room + kTagSize, kBigSize - kTagSize}};
  alignas(cmsghdr) uint8_t control[CMSG_SPACE(sizeof(tpacket_auxdata))];
  msghdr message{};
  message.msg_iov = parts;
  message.msg_iovlen = std::size(parts);
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  const ssize_t length = recvmsg(fd_, &message, MSG_DONTWAIT | MSG_TRUNC);
  if (length < static_cast<ssize_t>(sizeof offload)) return false;
  const size_t bytes = static_cast<size_t>(length) - sizeof offload;
  if ((message.msg_flags & MSG_TRUNC) != 0 || bytes > kBigSize - kTagSize) {
    Add(oversize_, 1);
    return true;
  }
  Tag tag;
  for (cmsghdr* c = CMSG_FIRSTHDR(&message); c != nullptr; c = CMSG_NXTHDR(&message, c)) {
    if (c->cmsg_level != SOL_PACKET || c->cmsg_type != PACKET_AUXDATA) continue;
    tpacket_auxdata aux;
    std::memcpy(&aux, CMSG_DATA(c), sizeof aux);
    if ((aux.tp_status & TP_STATUS_VLAN_VALID) == 0) continue;
    const bool named = (aux.tp_status & TP_STATUS_VLAN_TPID_VALID) != 0;
    tag = {named ? aux.tp_vlan_tpid : static_cast<uint16_t>(ETH_P_8021Q), aux.tp_vlan_tci};
  }
  ++big_used_;
  Deliver({room + kTagSize, bytes}, offload, tag);
  return true;
}

// The four bytes in front of `bytes` are free for the tag: the offload header stood there, or they were kept.
void PortSocket::Deliver(std::span<uint8_t> bytes, OffloadHeader offload, Tag tag) {
  const bool partial = (offload.flags & OffloadHeader::kNeedsChecksum) != 0;
  if (offload.gso_type == OffloadHeader::kNotSegmented) {
    if (partial && CompleteChecksum(bytes, offload.csum_start, offload.csum_offset)) Add(checksums_, 1);
    offload = {};
  }
  if (tag.tpid != kNone && bytes.size() >= kMacsSize) {
    uint8_t* const start = bytes.data() - kTagSize;
    std::memmove(start, bytes.data(), kMacsSize);
    const uint16_t words[] = {htons(tag.tpid), htons(tag.tci)};
    std::memcpy(start + kMacsSize, words, sizeof words);
    bytes = {start, bytes.size() + kTagSize};
    offload = Shifted(offload, static_cast<int>(kTagSize));
  }
  Add(rx_frames_, 1);
  Add(rx_bytes_, bytes.size());
  frames_.push_back({bytes, offload});
}

void PortSocket::ClearError() {
  int error = 0;
  socklen_t length = sizeof error;
  if (getsockopt(fd_, SOL_SOCKET, SO_ERROR, &error, &length) == 0 && error != 0) Add(link_events_, 1);
}

// ---- Sending -------------------------------------------------------------------------------------------

bool Outgoing::Build(std::span<const uint8_t> frame, const OffloadHeader& offload, TagEdit edit) {
  const bool removes = edit.kind == TagEdit::Kind::kRemove || edit.kind == TagEdit::Kind::kReplace;
  const bool inserts = edit.kind == TagEdit::Kind::kInsert || edit.kind == TagEdit::Kind::kReplace;
  const size_t rest = kMacsSize + (removes ? kTagSize : 0);
  if (frame.size() < rest) return false;
  auto* const bytes = const_cast<uint8_t*>(frame.data());  // sending reads only
  offload_ = inserts == removes ? offload : Shifted(offload, inserts ? int{kTagSize} : -int{kTagSize});
  parts_[0] = {&offload_, sizeof offload_};
  parts_[1] = {bytes, kMacsSize};
  count_ = 2;
  if (inserts) {
    const uint16_t words[] = {htons(ETH_P_8021Q), htons(edit.tag)};
    std::memcpy(tag_.data(), words, sizeof words);
    parts_[count_++] = {tag_.data(), kTagSize};
  }
  parts_[count_++] = {bytes + rest, frame.size() - rest};
  return true;
}

void Outgoing::Describe(msghdr& message) {
  message.msg_iov = parts_.data();
  message.msg_iovlen = count_;
}

bool PortSocket::Send(std::span<const uint8_t> frame, TagEdit edit) {
  Outgoing outgoing;
  msghdr message{};
  if (!outgoing.Build(frame, {}, edit)) return false;
  outgoing.Describe(message);
  const ssize_t sent = sendmsg(fd_, &message, MSG_DONTWAIT);
  Add(sent >= 0 ? tx_frames_ : tx_failed_, 1);
  if (sent >= 0) Add(tx_bytes_, static_cast<size_t>(sent) - sizeof(OffloadHeader));
  return sent >= 0;
}

PortIoStats PortSocket::Stats() const {
  tpacket_stats counted{};
  socklen_t length = sizeof counted;
  // Reading resets the kernel's counters, so every reader adds what it read.
  if (getsockopt(fd_, SOL_PACKET, PACKET_STATISTICS, &counted, &length) == 0)
    Add(kernel_drops_, counted.tp_drops);
  return {.rx_frames = Get(rx_frames_),
          .rx_bytes = Get(rx_bytes_),
          .tx_frames = Get(tx_frames_),
          .tx_bytes = Get(tx_bytes_),
          .tx_failed = Get(tx_failed_),
          .kernel_drops = Get(kernel_drops_),
          .oversize = Get(oversize_),
          .checksums = Get(checksums_),
          .link_events = Get(link_events_)};
}

TxQueue::TxQueue(PortSocket& port) : port_(port), messages_{} {}

void TxQueue::Add(std::span<const uint8_t> frame, const OffloadHeader& offload, TagEdit edit) {
  if (count_ == kCapacity) Flush();
  if (!frames_[count_].Build(frame, offload, edit)) return;
  frames_[count_].Describe(messages_[count_].msg_hdr);
  ++count_;
}

void TxQueue::Flush() {
  size_t done = 0, sent = 0, bytes = 0;
  while (done < count_) {
    const int result =
        sendmmsg(port_.fd_, &messages_[done], static_cast<unsigned>(count_ - done), MSG_DONTWAIT);
    if (result <= 0) {
      ++done;  // the first of them was refused; the others get their chance
      vex::host::live::Add(port_.tx_failed_, 1);
      continue;
    }
    for (int i = 0; i < result; ++i) bytes += messages_[done++].msg_len - sizeof(OffloadHeader);
    sent += static_cast<size_t>(result);
  }
  count_ = 0;
  vex::host::live::Add(port_.tx_frames_, sent);
  vex::host::live::Add(port_.tx_bytes_, bytes);
}

}  // namespace vex::host::live
