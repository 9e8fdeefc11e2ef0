// file_window.h - a file seen through a window of fixed size that slides forward.
// In:  a path, or "-" for standard input; pipes work too. Out: contiguous bytes at the current position.
// The window's memory is all that is held, whatever the file's size. Nothing is thrown.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace vex::host {

class FileWindow {
 public:
  static constexpr size_t kWindowBytes = 256 * 1024;

  explicit FileWindow(const std::string& path);
  ~FileWindow();
  FileWindow(const FileWindow&) = delete;
  FileWindow& operator=(const FileWindow&) = delete;

  // The next count bytes (at most kWindowBytes), fewer only when the file ends or fails before them. They
  // stay where they are until the next Peek or Skip.
  std::span<const uint8_t> Peek(size_t count) {
    return available() >= count ? std::span{buffer_.get() + begin_, count} : Fill(count);
  }
  // Moves behind bytes that Peek has shown.
  void Pass(size_t count) {
    begin_ += count;
    offset_ += count;
  }
  // Moves the position forward; returns how many bytes there really were.
  uint64_t Skip(uint64_t count);

  uint64_t offset() const { return offset_; }
  uint64_t size() const { return size_; }                  // 0 when it is not a regular file
  const std::string& failure() const { return failure_; }  // why it cannot be opened or read; empty: it can

 private:
  size_t available() const { return end_ - begin_; }
  std::span<const uint8_t> Fill(size_t count);

  std::unique_ptr<uint8_t[]> buffer_;
  size_t begin_ = 0;
  size_t end_ = 0;
  uint64_t offset_ = 0;  // of begin_ in the file
  uint64_t size_ = 0;
  int fd_ = -1;
  std::string failure_;
};

}  // namespace vex::host
