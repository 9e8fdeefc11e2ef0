// atomic_file.cpp - the steps of replacing a file.
// In:  path, content, the system calls to use. Out: a complete file, or an error and the old one untouched.
#include "service/atomic_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace vex::service {
namespace {

std::string Failed(std::string_view step, const std::string& path) {
  return fmt::format("{}: cannot {}: {}; check the directory's rights and free space", path, step,
                     std::strerror(errno));
}

bool WriteAll(FileOps& ops, int fd, std::string_view content) {
  Bytes rest(reinterpret_cast<const uint8_t*>(content.data()), content.size());
  while (!rest.empty()) {
    const long written = ops.Write(fd, rest);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    rest = rest.subspan(static_cast<size_t>(written));
  }
  return true;
}

// Empty: the whole content is on disk under that name.
std::string WriteNew(FileOps& ops, const std::string& path, std::string_view content) {
  const int fd = ops.Open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (fd < 0) return Failed("open for writing", path);
  std::string error;
  if (!WriteAll(ops, fd, content))
    error = Failed("write", path);
  else if (ops.Sync(fd) != 0)
    error = Failed("fsync", path);
  if (ops.Close(fd) != 0 && error.empty()) error = Failed("close", path);
  return error;
}

// The rename itself must survive a power cut.
std::string SyncDirectory(FileOps& ops, const std::string& path) {
  const size_t slash = path.rfind('/');
  const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  const int fd = ops.Open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0);
  if (fd < 0) return Failed("open", directory);
  std::string error = ops.Sync(fd) == 0 ? "" : Failed("fsync", directory);
  ops.Close(fd);
  return error;
}

}  // namespace

int FileOps::Open(const char* path, int flags, unsigned mode) { return ::open(path, flags, mode); }
long FileOps::Write(int fd, Bytes bytes) { return ::write(fd, bytes.data(), bytes.size()); }
int FileOps::Sync(int fd) { return ::fsync(fd); }
int FileOps::Close(int fd) { return ::close(fd); }
int FileOps::Rename(const char* from, const char* to) { return ::rename(from, to); }

FileOps& SystemFiles() {
  static FileOps ops;
  return ops;
}

std::string ReplaceFile(const std::string& path, std::string_view content, FileOps& ops) {
  const std::string fresh = path + ".new";
  std::string error = WriteNew(ops, fresh, content);
  if (!error.empty()) return error;
  if (ops.Rename(fresh.c_str(), path.c_str()) != 0) return Failed("replace it by " + fresh, path);
  return SyncDirectory(ops, path);
}

}  // namespace vex::service
