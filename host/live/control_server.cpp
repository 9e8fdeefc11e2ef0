// control_server.cpp - see control_server.h.
#include "host/live/control_server.h"

#include <fmt/format.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "host/error.h"
#include "host/live/control_request.h"

namespace vex::host::live {
namespace {

sockaddr_un AddressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path) {
    throw InputError(
        fmt::format("control socket \"{}\": a path has 1 to {} bytes", path, sizeof address.sun_path - 1));
  }
  std::memcpy(address.sun_path, path.data(), path.size());
  return address;
}

[[noreturn]] void Fail(const std::string& path, const char* step) {
  throw InputError(fmt::format("control socket {}: {}: {}; choose another with --socket", path, step,
                               std::strerror(errno)));
}

// Whether somebody answers on the socket that is already there.
bool IsServed(const sockaddr_un& address) {
  const int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const bool served = connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  close(probe);
  return served;
}

void Watch(int epoll, int operation, int fd, uint32_t events) {
  epoll_event event{};
  event.events = events;
  event.data.fd = fd;
  epoll_ctl(epoll, operation, fd, &event);
}

}  // namespace

ControlServer::ControlServer(std::string path, Handler handler)
    : path_(std::move(path)), handler_(std::move(handler)), epoll_(epoll_create1(EPOLL_CLOEXEC)) {
  try {
    Listen();
  } catch (...) {
    if (listener_ >= 0) close(listener_);
    close(epoll_);
    throw;
  }
  Watch(epoll_, EPOLL_CTL_ADD, listener_, EPOLLIN);
}

void ControlServer::Listen() {
  const sockaddr_un address = AddressOf(path_);
  struct stat found {};
  if (lstat(path_.c_str(), &found) == 0) {
    if (!S_ISSOCK(found.st_mode))
      throw InputError(fmt::format("control socket {}: there is a file of that name", path_));
    if (IsServed(address))
      throw InputError(
          fmt::format("control socket {}: another vexhost serves it; choose another with --socket", path_));
    unlink(path_.c_str());  // left behind by one that was killed
  }
  listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (listener_ < 0) Fail(path_, "making it");
  const mode_t before = umask(0177);  // nobody else, from its first moment on
  const bool bound = bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  umask(before);
  if (!bound) Fail(path_, "binding it");
  if (listen(listener_, kMaxClients) != 0) Fail(path_, "listening");
}

ControlServer::~ControlServer() {
  for (const auto& [fd, client] : clients_) close(fd);
  close(listener_);
  close(epoll_);
  unlink(path_.c_str());
}

void ControlServer::Serve() {
  std::array<epoll_event, 8> events;
  const int ready = epoll_wait(epoll_, events.data(), static_cast<int>(events.size()), 0);
  for (int i = 0; i < ready; ++i) {
    const int fd = events[static_cast<size_t>(i)].data.fd;
    if (fd == listener_) {
      Accept();
      continue;
    }
    const auto client = clients_.find(fd);
    if (client == clients_.end() || Talk(fd, client->second)) continue;
    close(fd);
    clients_.erase(client);
  }
}

void ControlServer::Accept() {
  const int fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
  if (fd < 0) return;
  if (clients_.size() >= kMaxClients) {
    constexpr std::string_view kFull =
        R"({"ok":false,"error":"too many clients are connected to the control socket; close one"})"
        "\n";
    send(fd, kFull.data(), kFull.size(), MSG_NOSIGNAL);  // a fresh socket has room for it
    close(fd);
    return;
  }
  clients_[fd];
  Watch(epoll_, EPOLL_CTL_ADD, fd, EPOLLIN);
}

bool ControlServer::Talk(int fd, Client& client) {
  if (client.out.empty() ? !Read(fd, client) : !Answer(fd, client)) return false;
  // One answer at a time: a client that does not read cannot make the others wait nor fill the memory.
  while (client.out.empty()) {
    const size_t end = client.in.find('\n');
    if (end == std::string::npos) break;
    client.out = handler_({reinterpret_cast<const uint8_t*>(client.in.data()), end}) + "\n";
    client.in.erase(0, end + 1);
    if (!Answer(fd, client)) return false;
  }
  Watch(epoll_, EPOLL_CTL_MOD, fd, client.out.empty() ? EPOLLIN : EPOLLOUT);
  return true;
}

bool ControlServer::Read(int fd, Client& client) {
  std::array<char, 4096> bytes;
  const ssize_t got = recv(fd, bytes.data(), bytes.size(), 0);
  if (got == 0 || (got < 0 && errno != EAGAIN)) return false;
  if (got > 0) client.in.append(bytes.data(), static_cast<size_t>(got));
  const size_t end = client.in.find('\n');
  if (end != std::string::npos || client.in.size() <= kMaxRequest) return true;
  client.out =
      handler_({reinterpret_cast<const uint8_t*>(client.in.data()), client.in.size()}) + "\n";  // says why
  Answer(fd, client);
  return false;
}

// False: the client is gone.
bool ControlServer::Answer(int fd, Client& client) {
  const ssize_t sent = send(fd, client.out.data(), client.out.size(), MSG_NOSIGNAL);
  if (sent < 0) return errno == EAGAIN;
  client.out.erase(0, static_cast<size_t>(sent));
  return true;
}

}  // namespace vex::host::live
