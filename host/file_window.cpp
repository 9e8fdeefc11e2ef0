// file_window.cpp - reads ahead into one buffer; what is left of it moves to the front when the end is near.
#include "host/file_window.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace vex::host {

FileWindow::FileWindow(const std::string& path) : buffer_(new uint8_t[kWindowBytes]) {
  fd_ = path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd_ < 0) {
    failure_ = std::string("cannot open: ") + std::strerror(errno);
    return;
  }
  struct stat info {};
  if (fstat(fd_, &info) == 0 && S_ISREG(info.st_mode)) size_ = static_cast<uint64_t>(info.st_size);
}

FileWindow::~FileWindow() {
  if (fd_ > STDIN_FILENO) close(fd_);
}

std::span<const uint8_t> FileWindow::Fill(size_t count) {
  count = std::min(count, kWindowBytes);
  if (begin_ + count > kWindowBytes) {
    std::memmove(buffer_.get(), buffer_.get() + begin_, available());
    end_ -= begin_;
    begin_ = 0;
  }
  while (available() < count && failure_.empty()) {
    const ssize_t got = read(fd_, buffer_.get() + end_, kWindowBytes - end_);
    if (got == 0) break;
    if (got > 0) {
      end_ += static_cast<size_t>(got);
    } else if (errno != EINTR) {
      failure_ = std::string("cannot read: ") + std::strerror(errno);
    }
  }
  return {buffer_.get() + begin_, std::min(count, available())};
}

uint64_t FileWindow::Skip(uint64_t count) {
  uint64_t skipped = 0;
  while (skipped < count) {
    const size_t step = Peek(static_cast<size_t>(std::min<uint64_t>(count - skipped, kWindowBytes))).size();
    if (step == 0) break;
    Pass(step);
    skipped += step;
  }
  return skipped;
}

}  // namespace vex::host
