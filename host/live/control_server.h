// control_server.h - the Unix socket on which a running switch takes requests: mode 0600, lines of JSON.
// In:  bytes of any number of clients. Out: one answer per line, through the handler. Bounded: few clients, a
// line of kMaxRequest bytes, one answer at a time; a client that misbehaves is closed, the others do not
// notice. Threads: none of its own. fd() is readable when Serve() has something to do.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <string>

namespace vex::host::live {

class ControlServer {
 public:
  // Answers a request line with an answer line, without their newlines.
  using Handler = std::function<std::string(std::span<const uint8_t> line)>;

  // Throws InputError: the path is taken by another running switch, or cannot be bound.
  ControlServer(std::string path, Handler handler);
  ~ControlServer();  // removes the socket
  ControlServer(const ControlServer&) = delete;
  ControlServer& operator=(const ControlServer&) = delete;

  int fd() const { return epoll_; }
  void Serve();
  const std::string& path() const { return path_; }

 private:
  struct Client {
    std::string in;
    std::string out;  // what the socket has not taken yet; the next request waits for it
  };
  static constexpr size_t kMaxClients = 16;
  void Listen();
  void Accept();
  bool Talk(int fd, Client& client);  // false: close it
  bool Read(int fd, Client& client);
  bool Answer(int fd, Client& client);

  const std::string path_;
  const Handler handler_;
  int epoll_ = -1;
  int listener_ = -1;
  std::map<int, Client> clients_;
};

}  // namespace vex::host::live
