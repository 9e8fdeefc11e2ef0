// lcore.cpp - see lcore.h.
// In:  jobs. Out: jobs done, one at a time per lcore, in their order.
#include "platform/lcore.h"

namespace vex::platform {

LcoreThreads::LcoreThreads(size_t count) {
  for (size_t i = 0; i < count; ++i) {
    threads_.push_back(std::make_unique<Lcore>());
    Lcore& lcore = *threads_.back();
    lcore.thread = std::thread([&lcore] { Loop(lcore); });
  }
}

LcoreThreads::~LcoreThreads() {
  for (const auto& lcore : threads_) {
    const std::lock_guard lock(lcore->mutex);
    lcore->stopping = true;
    lcore->changed.notify_all();
  }
  for (const auto& lcore : threads_) lcore->thread.join();
}

void LcoreThreads::Loop(Lcore& lcore) {
  std::unique_lock lock(lcore.mutex);
  while (true) {
    lcore.changed.wait(lock, [&] { return lcore.stopping || !lcore.jobs.empty(); });
    if (lcore.jobs.empty()) return;
    const auto job = std::move(lcore.jobs.front());
    lcore.jobs.pop_front();
    lcore.busy = true;
    lock.unlock();
    job();
    lock.lock();
    lcore.busy = false;
    lcore.changed.notify_all();
  }
}

void LcoreThreads::Start(size_t lcore, std::function<void()> job) {
  if (threads_.empty()) return job();
  Lcore& target = *threads_.at(lcore);
  const std::lock_guard lock(target.mutex);
  target.jobs.push_back(std::move(job));
  target.changed.notify_all();
}

void LcoreThreads::Wait() {
  for (const auto& lcore : threads_) {
    std::unique_lock lock(lcore->mutex);
    lcore->changed.wait(lock, [&] { return lcore->jobs.empty() && !lcore->busy; });
  }
}

void LcoreThreads::RunOnEach(const std::function<void()>& job) {
  if (threads_.empty()) return job();
  for (size_t i = 0; i < threads_.size(); ++i) Start(i, job);
  Wait();
}

}  // namespace vex::platform
