// replay_process.cpp - the pipe's messages: kind, length, bytes, written and read in pieces of about 40 KiB.
#include "host/replay_process.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <utility>

#include "host/error.h"

namespace vex::host {
namespace {

enum Kind : uint32_t { kFile, kProgress, kFrames, kError, kTotals, kFailure };
constexpr size_t kBatch = 1024;         // frames per message
constexpr int kPipeBytes = 256 * 1024;  // fewer changes between the processes
constexpr size_t kMaxMessage = 1024 * 1024;

struct MessageHead {
  uint32_t kind;
  uint32_t length;
};

bool WriteAll(int fd, const void* bytes, size_t length) {
  const char* at = static_cast<const char*>(bytes);
  while (length != 0) {
    const ssize_t written = write(fd, at, length);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    at += written;
    length -= static_cast<size_t>(written);
  }
  return true;
}

}  // namespace

void ReplayProcess::Sender::Send(uint32_t kind, const void* bytes, size_t length) {
  const MessageHead head{kind, static_cast<uint32_t>(length)};
  // The reader is gone: nobody is left to tell.
  if (!WriteAll(fd_, &head, sizeof head) || !WriteAll(fd_, bytes, length)) _exit(kExitBadInput);
}

void ReplayProcess::Sender::Flush() {
  if (batch_.empty()) return;
  Send(kProgress, &progress_, sizeof progress_);
  Send(kFrames, batch_.data(), batch_.size() * sizeof(FrameFate));
  batch_.clear();
}

void ReplayProcess::Sender::OnFrame(const FrameOutcome& outcome) {
  if (outcome.file != file_) {
    Flush();
    file_ = outcome.file;
    Send(kFile, file_.data(), file_.size());
  }
  batch_.push_back(FateOf(outcome));
  ++fates_[static_cast<size_t>(batch_.back().fate())];
  if (batch_.size() == kBatch) Flush();
}

void ReplayProcess::Sender::Totals(const ReplayTotals& totals, bool adds_up) {
  Flush();
  for (const CaptureError& error : totals.errors) {
    const std::string text = fmt::format("{} {}\n{}", error.offset, error.file, error.what);
    Send(kError, text.data(), text.size());
  }
  const SideTotals side{totals.frames, fates_, adds_up ? 1u : 0u};
  Send(kTotals, &side, sizeof side);
}

void ReplayProcess::Sender::Failure(const std::string& what) { Send(kFailure, what.data(), what.size()); }

ReplayProcess::ReplayProcess(std::string name, const std::function<void(Sender&)>& job)
    : name_(std::move(name)) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw InputError(fmt::format("no pipe: {}", std::strerror(errno)));
  fcntl(ends[0], F_SETPIPE_SZ, kPipeBytes);
  std::fflush(nullptr);
  pid_ = fork();
  if (pid_ < 0) throw InputError(fmt::format("no process for {}: {}", name_, std::strerror(errno)));
  if (pid_ == 0) {
    close(ends[0]);
    Sender sender(ends[1]);
    try {
      job(sender);
    } catch (const std::exception& failure) {
      sender.Failure(failure.what());
    }
    _exit(kExitOk);
  }
  close(ends[1]);
  fd_ = ends[0];
}

ReplayProcess::~ReplayProcess() {
  if (fd_ >= 0) close(fd_);
  if (pid_ <= 0) return;
  kill(pid_, SIGKILL);  // without effect on a child that has already ended
  waitpid(pid_, nullptr, 0);
}

const FrameFate* ReplayProcess::Next() {
  while (at_ == batch_.size()) {
    if (over_ || !ReadMessage()) return nullptr;
  }
  return &batch_[at_++];
}

bool ReplayProcess::Read(void* to, size_t length) {
  char* at = static_cast<char*>(to);
  while (length != 0) {
    const ssize_t got = read(fd_, at, length);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    at += got;
    length -= static_cast<size_t>(got);
  }
  return true;
}

// False when that was the last one.
bool ReplayProcess::ReadMessage() {
  MessageHead head{};
  if (!Read(&head, sizeof head) || head.length > kMaxMessage) FailEarly();
  if (head.kind == kFrames) {
    batch_.resize(head.length / sizeof(FrameFate));
    at_ = 0;
    if (!Read(batch_.data(), head.length)) FailEarly();
    return true;
  }
  std::string body(head.length, '\0');
  if (!Read(body.data(), body.size())) FailEarly();
  switch (head.kind) {
    case kFile:
      file_ = std::move(body);
      return true;
    case kProgress:
      std::memcpy(&progress_, body.data(), std::min(body.size(), sizeof progress_));
      return true;
    case kError: {
      const size_t space = body.find(' '), line = body.rfind('\n');
      result_.errors.push_back(
          {body.substr(space + 1, line - space - 1), std::stoull(body), body.substr(line + 1)});
      return true;
    }
    case kTotals:
      std::memcpy(&result_.totals, body.data(), std::min(body.size(), sizeof result_.totals));
      break;
    default:
      throw InputError(fmt::format("with {}: {}", name_, body));
  }
  over_ = true;
  return false;
}

void ReplayProcess::FailEarly() {
  int status = 0;
  waitpid(std::exchange(pid_, -1), &status, 0);
  if (WIFSIGNALED(status)) {
    throw InputError(fmt::format("with {}: the replay ended with signal {}", name_, WTERMSIG(status)));
  }
  throw InputError(fmt::format("with {}: the replay ended without its totals", name_));
}

}  // namespace vex::host
