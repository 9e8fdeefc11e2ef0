// ctl.cpp - words to a request line, an answer line to text.
#include "host/live/ctl.h"

#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "host/error.h"
#include "host/live/control_request.h"
#include "host/table.h"

namespace vex::host::live {
namespace {

class Connection {
 public:
  explicit Connection(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path) {
      throw InputError(
          fmt::format("control socket \"{}\": a path has 1 to {} bytes", path, sizeof address.sun_path - 1));
    }
    path.copy(address.sun_path, path.size());
    fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return;
    const int error = errno;
    close(fd_);
    throw InputError(fmt::format("control socket {}: {}; is `vexhost run` up, with this --socket?", path,
                                 std::strerror(error)));
  }
  ~Connection() { close(fd_); }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  std::string Ask(const std::string& line) const {
    const std::string request = line + "\n";
    // One that is refused may find the socket closed already, with the reason waiting to be read.
    const bool taken =
        send(fd_, request.data(), request.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(request.size());
    std::string answer;
    std::array<char, 65536> bytes;
    while (!answer.ends_with('\n')) {
      const ssize_t got = recv(fd_, bytes.data(), bytes.size(), 0);
      if (got <= 0) {
        throw InputError(taken ? "the switch closed the connection without an answer"
                               : "the switch does not take the request");
      }
      answer.append(bytes.data(), static_cast<size_t>(got));
    }
    return answer;
  }

 private:
  int fd_ = -1;
};

Json RequestOf(const std::vector<std::string>& words) {
  const auto is = [&](size_t count, std::string_view first) {
    return words.size() == count && words[0] == first;
  };
  Json request;
  request["command"] = words[0];
  if (is(2, "show")) {
    request["what"] = words[1];
  } else if (is(3, "set")) {
    request["key"] = words[1];
    request["value"] = words[2];
  } else if (is(3, "trace") && words[1] == "on") {
    request["on"] = words[2];
  } else if (!(is(2, "trace") && words[1] == "off") && !is(1, "reload") && !is(1, "save")) {
    throw InputError(fmt::format("\"{}\" is no request; see vexhost ctl --help", fmt::join(words, " ")));
  }
  return request;
}

std::string CellOf(const Json& value) {
  if (value.is_string()) return value.get<std::string>();
  if (value.is_boolean()) return value.get<bool>() ? "yes" : "-";
  return value.dump();
}

std::string HeadOf(std::string name) {
  std::ranges::replace(name, '_', ' ');
  return name;
}

std::string TableText(const Json& rows) {
  if (rows.empty()) return "none\n";
  std::vector<std::string> head;
  std::vector<Table::Align> align;
  for (const auto& [name, value] : rows.front().items()) {
    head.push_back(HeadOf(name));
    align.push_back(value.is_number() ? Table::Align::kRight : Table::Align::kLeft);
  }
  Table table("", head, align);
  for (const Json& row : rows) {
    std::vector<std::string> cells;
    for (const auto& [name, value] : row.items()) cells.push_back(CellOf(value));
    table.Row(std::move(cells));
  }
  return JoinLines(table.Lines());
}

}  // namespace

std::string TextOf(const Json& data) {
  if (data.is_array()) return TableText(data);
  if (!data.is_object()) return CellOf(data) + "\n";
  size_t width = 0;
  for (const auto& [name, value] : data.items()) width = std::max(width, name.size());
  std::string text;
  for (const auto& [name, value] : data.items())
    text += fmt::format("{:<{}}  {}\n", HeadOf(name), width, CellOf(value));
  return text;
}

int RunCtl(const CtlCommand& command) {
  const std::string request = RequestOf(command.words).dump(-1, ' ', false, Json::error_handler_t::replace);
  const Connection connection(command.socket);
  while (true) {
    const Json answer = Json::parse(connection.Ask(request));
    if (!answer.value("ok", false)) throw InputError(answer.value("error", "the switch refused the request"));
    if (command.watch_seconds > 0 && !command.json) fmt::print("\x1b[H\x1b[2J");  // home, clear
    fmt::print("{}", command.json ? answer["data"].dump() + "\n" : TextOf(answer["data"]));
    std::fflush(stdout);
    if (command.watch_seconds <= 0) return kExitOk;
    const auto whole = static_cast<time_t>(command.watch_seconds);
    const timespec pause{whole,
                         static_cast<long>((command.watch_seconds - static_cast<double>(whole)) * 1e9)};
    nanosleep(&pause, nullptr);
  }
}

}  // namespace vex::host::live
