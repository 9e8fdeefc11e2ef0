// control_server_test.cpp - clients of the control socket that pipeline, do not read, or are too many.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "host/live/control_server.h"

namespace vex::host::live {
namespace {

using ::testing::HasSubstr;

class ControlServerTest : public ::testing::Test {
 protected:
  ~ControlServerTest() override {
    for (const int fd : clients_) close(fd);
  }

  int Connect() {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    server_.path().copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    return clients_.emplace_back(fd);
  }

  // As long as somebody has something for the server.
  void Serve() {
    pollfd ready{server_.fd(), POLLIN, 0};
    while (poll(&ready, 1, 0) > 0) server_.Serve();
  }

  static void Send(int fd, const std::string& text) {
    EXPECT_EQ(send(fd, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
  }

  // Everything that arrives, with the server working whenever nothing waits.
  std::string Receive(int fd) {
    std::string all;
    std::vector<char> bytes(4096);
    for (int quiet = 0; quiet < 2;) {
      const ssize_t got = recv(fd, bytes.data(), bytes.size(), 0);
      if (got > 0) all.append(bytes.data(), static_cast<size_t>(got));
      quiet = got > 0 ? 0 : quiet + 1;
      Serve();
    }
    return all;
  }

  static constexpr size_t kLong = 1 << 20;  // more than a socket takes at once
  ControlServer server_{::testing::TempDir() + "control-" + std::to_string(getpid()),
                        [](std::span<const uint8_t> line) {
                          const std::string text(line.begin(), line.end());
                          return text == "long" ? std::string(kLong, 'x') : "<" + text + ">";
                        }};
  std::vector<int> clients_;
};

TEST_F(ControlServerTest, RequestsBehindALongAnswerAreAnsweredInTheirOrder) {
  const int client = Connect(), other = Connect();
  Send(client, "long\na\nlong\nb\n");
  Send(other, "c\n");
  Serve();
  EXPECT_EQ(Receive(other), "<c>\n") << "a client that does not read keeps nobody waiting";
  const std::string answer(kLong, 'x');
  EXPECT_TRUE(Receive(client) == answer + "\n<a>\n" + answer + "\n<b>\n");
}

TEST_F(ControlServerTest, OneTooManyIsToldSoAndTheOthersAreServed) {
  std::vector<int> fds;
  for (int i = 0; i < 16; ++i) fds.push_back(Connect());
  Serve();
  EXPECT_THAT(Receive(Connect()), HasSubstr("too many clients"));
  Send(fds[15], "a\n");
  EXPECT_EQ(Receive(fds[15]), "<a>\n");
}

}  // namespace
}  // namespace vex::host::live
