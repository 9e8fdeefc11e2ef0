// lcore.h - the framework's forwarding threads.
// In:  a number of threads and jobs for them. Out: each job executed on its thread, in the order given.
// Zero threads is the single-threaded framework: the caller is the only lcore.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace vex::platform {

class LcoreThreads {
 public:
  explicit LcoreThreads(size_t count);
  ~LcoreThreads();  // finishes the jobs given, then ends the threads
  LcoreThreads(const LcoreThreads&) = delete;
  LcoreThreads& operator=(const LcoreThreads&) = delete;

  size_t Count() const { return threads_.size(); }
  void Start(size_t lcore, std::function<void()> job);  // does not wait; a job must not throw
  void Wait();                                          // until every job given so far is done
  void RunOnEach(const std::function<void()>& job);     // on every lcore (or the caller), and waits

 private:
  struct Lcore {
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<std::function<void()>> jobs;
    bool busy = false;
    bool stopping = false;
    std::thread thread;
  };
  static void Loop(Lcore& lcore);
  std::vector<std::unique_ptr<Lcore>> threads_;
};

}  // namespace vex::platform
