// atomic_file.h - replaces a file as a whole: whoever reads it, or restarts after a crash, sees the old or
// the new content and never a part. In: a path and its new content. Out: empty, or what failed. Steps: write
// "PATH.new", fsync it, rename it over PATH, fsync the directory.
#pragma once

#include <string>
#include <string_view>

#include "service/bytes.h"

namespace vex::service {

// The system calls in between, so that tests can stop at any of them. Results as the calls': -1 and errno.
class FileOps {
 public:
  virtual ~FileOps() = default;
  virtual int Open(const char* path, int flags, unsigned mode);
  virtual long Write(int fd, Bytes bytes);
  virtual int Sync(int fd);
  virtual int Close(int fd);
  virtual int Rename(const char* from, const char* to);
};
FileOps& SystemFiles();

// The file gets mode 0600. Empty: done and on disk.
std::string ReplaceFile(const std::string& path, std::string_view content, FileOps& ops = SystemFiles());

}  // namespace vex::service
