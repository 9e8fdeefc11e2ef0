// replay_process.h - a replay in a process of its own, because a process holds one module.
// In:  a job, run in a child. Out: the fate of every frame in order, then the totals, or what went wrong.
// The child sends through a pipe and waits when the reader is slow, so memory stays bounded on both sides.
// Fork happens in the constructor: the caller has no threads and no module loaded at that moment.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/frame_fate.h"
#include "host/replay.h"

namespace vex::host {

// Of one configuration's replay.
struct SideTotals {
  uint64_t frames = 0;
  std::array<uint64_t, kFates> fates{};
  uint64_t adds_up = 0;  // 1: the identity and every budget's sum hold, and the module gave everything back
};

struct SideResult {
  SideTotals totals;
  std::vector<CaptureError> errors;
};

class ReplayProcess {
 public:
  // What a job sends, in the child.
  class Sender final : public ReplaySink {
   public:
    explicit Sender(int fd) : fd_(fd) {}
    void OnFrame(const FrameOutcome& outcome) override;
    void OnEvent(const ReplayEvent&) override {}
    void Progress(const ReplayProgress& progress) { progress_ = progress; }
    void Totals(const ReplayTotals& totals, bool adds_up);
    void Failure(const std::string& what);

   private:
    friend class ReplayProcess;
    void Flush();
    void Send(uint32_t kind, const void* bytes, size_t length);
    int fd_;
    std::string file_;
    ReplayProgress progress_;
    std::vector<FrameFate> batch_;
    std::array<uint64_t, kFates> fates_{};
  };

  // name: the configuration, for failures. An InputError of the job is thrown by Next() in the parent.
  ReplayProcess(std::string name, const std::function<void(Sender&)>& job);
  ~ReplayProcess();  // ends the child if it still runs
  ReplayProcess(const ReplayProcess&) = delete;
  ReplayProcess& operator=(const ReplayProcess&) = delete;

  // The next frame; null when the replay is over and result() complete. Throws InputError.
  const FrameFate* Next();
  const std::string& file() const { return file_; }  // base name of the file of the last frame
  const ReplayProgress& progress() const { return progress_; }
  const SideResult& result() const { return result_; }

 private:
  bool ReadMessage();
  bool Read(void* to, size_t length);
  [[noreturn]] void FailEarly();

  std::string name_;
  pid_t pid_ = -1;
  int fd_ = -1;
  std::string file_;
  ReplayProgress progress_;
  std::vector<FrameFate> batch_;
  size_t at_ = 0;
  bool over_ = false;
  SideResult result_;
};

}  // namespace vex::host
