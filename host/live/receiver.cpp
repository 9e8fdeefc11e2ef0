// receiver.cpp - see receiver.h.
#include "host/live/receiver.h"

#include <fmt/format.h>
#include <sched.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "host/error.h"

namespace vex::host::live {
namespace {

constexpr uint32_t kWake = UINT32_MAX;  // epoll data of the eventfd; otherwise a port's position

void Watch(int epoll, int fd, uint32_t data) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.u32 = data;
  if (epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event) == 0) return;
  throw InputError(fmt::format("cannot watch a port: {}", std::strerror(errno)));
}

}  // namespace

void ReceiveGate::Enter() {
  while (waiting_.load(std::memory_order_relaxed) != 0) sched_yield();
  mutex_.lock();
}

Receiver::Receiver(Fabric& fabric, std::vector<uint16_t> group, const LiveModule& module,
                   PeerLinkRefusals& peer_link, const TraceFilter& trace, LogLine log)
    : fabric_(fabric), group_(std::move(group)), presenter_(module, peer_link, trace, std::move(log)) {
  epoll_ = epoll_create1(EPOLL_CLOEXEC);
  wake_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  Watch(epoll_, wake_, kWake);
  for (const uint16_t at : group_) Watch(epoll_, fabric_.ports()[at].socket->fd(), at);
  for (const LivePort& port : fabric_.ports()) queues_.push_back(std::make_unique<TxQueue>(*port.socket));
}

Receiver::~Receiver() {
  close(epoll_);
  close(wake_);
}

void Receiver::Stop() {
  const uint64_t one = 1;
  // A full eventfd would mean that the loop is told already.
  if (write(wake_, &one, sizeof one) < 0) return;
}

void Receiver::Run() {
  std::array<epoll_event, 32> events;
  for (bool running = true; running;) {
    const int ready = epoll_wait(epoll_, events.data(), static_cast<int>(events.size()), -1);
    for (int i = 0; i < ready; ++i) {
      const epoll_event& event = events[static_cast<size_t>(i)];
      if (event.data.u32 == kWake) {
        uint64_t count = 0;
        if (read(wake_, &count, sizeof count) > 0) running = false;
        continue;
      }
      const auto at = static_cast<uint16_t>(event.data.u32);
      if ((event.events & (EPOLLERR | EPOLLHUP)) != 0) fabric_.ports()[at].socket->ClearError();
      gate_.Enter();
      Batch(at);
      gate_.Leave();
    }
  }
}

void Receiver::Batch(uint16_t at) {
  PortSocket& socket = *fabric_.ports()[at].socket;
  const uint32_t now = MonotonicSeconds();
  for (const RxFrame& frame : socket.Receive(kBatch)) Handle(frame, at, now);
  for (const auto& queue : queues_) queue->Flush();
  socket.Release();
}

void Receiver::Handle(const RxFrame& frame, uint16_t at, uint32_t now) {
  const LivePort& port = fabric_.ports()[at];
  PortCounters& counters = *port.counters;
  const ParsedFrame parsed = ParseFrame(frame.bytes);
  Count(counters.frames);
  fabric_.l2().Learn(parsed, at, now);
  const Presenter::Result result = presenter_.Present(frame.bytes, parsed, port.record);
  Count(counters.fates[static_cast<size_t>(KindOf(parsed.app_type))][static_cast<size_t>(result.fate)]);
  if (!result.goes_on) return;
  fabric_.l2().Find(parsed, at, now, route_);
  Count(counters.switched[static_cast<size_t>(route_.fate)]);
  const uint16_t vlan = VlanOf(parsed, port.record);
  for (const uint16_t out : route_.ports) {
    queues_[out]->Add(frame.bytes, frame.offload,
                      EditFor(vlan, OuterTag(parsed), fabric_.ports()[out].record));
  }
}

}  // namespace vex::host::live
