// live_load.cpp - many DHCP clients behind one interface, for floods and measurements.
// In:  an interface, the family, how many clients, how many exchanges at once or per second, for how long.
// Out: one line of JSON: exchanges done and failed, their rate, how long a request waited for its answer.
// An exchange is DISCOVER, OFFER, REQUEST, ACK (RFC 2131) or SOLICIT, ADVERTISE, REQUEST, REPLY (RFC 8415).
// IPv4 clients have hardware addresses of their own and raw frames; IPv6 clients share the interface's
// address and differ by DUID.
#include <arpa/inet.h>
#include <fmt/format.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using Bytes = std::vector<uint8_t>;

struct Options {
  std::string interface;
  int family = 4;
  uint32_t clients = 1000;
  uint32_t window = 16;  // exchanges at once
  double rate = 0;       // exchanges begun per second; 0: as fast as the window lets
  double seconds = 3;
  uint64_t exchanges = 0;  // end after so many; 0: after the time
  uint32_t prefix = 0x75;  // second byte of the clients' hardware addresses
};

void Put16(Bytes& to, uint32_t value) {
  to.push_back(static_cast<uint8_t>(value >> 8));
  to.push_back(static_cast<uint8_t>(value));
}
void Put32(Bytes& to, uint32_t value) {
  Put16(to, value >> 16);
  Put16(to, value & 0xFFFF);
}
void Append(Bytes& to, std::span<const uint8_t> bytes) { to.insert(to.end(), bytes.begin(), bytes.end()); }
uint32_t Get16(std::span<const uint8_t> from, size_t at) {
  return static_cast<uint32_t>(from[at] << 8 | from[at + 1]);
}
uint32_t Get32(std::span<const uint8_t> from, size_t at) {
  return Get16(from, at) << 16 | Get16(from, at + 2);
}

struct Reply {
  uint32_t client = 0;
  bool offer = false;     // or an advertisement; otherwise the end of the exchange
  Bytes request_options;  // what the request has to repeat
};

// One family's wire format and socket.
class Wire {
 public:
  virtual ~Wire() {
    if (fd_ >= 0) close(fd_);
  }
  virtual bool Ask(uint32_t client, uint32_t round) = 0;
  virtual bool Request(uint32_t client, uint32_t round, std::span<const uint8_t> options) = 0;
  // Nothing: no answer of ours, or of another round.
  virtual std::optional<Reply> Parse(std::span<const uint8_t> bytes, const std::vector<uint32_t>& rounds) = 0;
  int fd() const { return fd_; }

 protected:
  int fd_ = -1;
};

void SetBuffers(int fd) {
  const int size = 4 << 20;
  setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size);
  setsockopt(fd, SOL_SOCKET, SO_SNDBUFFORCE, &size, sizeof size);
}

// ---- DHCPv4 over raw frames ----------------------------------------------------------------------------

class Wire4 final : public Wire {
 public:
  explicit Wire4(const Options& options) : prefix_(options.prefix) {
    fd_ = socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK, htons(ETH_P_IP));
    SetBuffers(fd_);
    const int on = 1;
    setsockopt(fd_, SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof on);
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_IP);
    address.sll_ifindex = static_cast<int>(if_nametoindex(options.interface.c_str()));
    packet_mreq promiscuous{};
    promiscuous.mr_ifindex = address.sll_ifindex;
    promiscuous.mr_type = PACKET_MR_PROMISC;
    setsockopt(fd_, SOL_PACKET, PACKET_ADD_MEMBERSHIP, &promiscuous, sizeof promiscuous);
    if (bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
      throw std::runtime_error("bind");
  }
  bool Ask(uint32_t client, uint32_t round) override {
    constexpr uint8_t kDiscover[] = {53, 1, 1, 55, 3, 1, 3, 6};
    return Send(client, round, kDiscover);
  }
  bool Request(uint32_t client, uint32_t round, std::span<const uint8_t> options) override {
    Bytes all = {53, 1, 3};
    Append(all, options);
    return Send(client, round, all);
  }
  std::optional<Reply> Parse(std::span<const uint8_t> frame, const std::vector<uint32_t>& rounds) override {
    constexpr size_t kBootp = 14 + 20 + 8;
    if (frame.size() < kBootp + 241 || frame[23] != 17 || Get16(frame, 36) != 68 || frame[kBootp] != 2)
      return {};
    const std::span<const uint8_t> bootp = frame.subspan(kBootp);
    Reply reply;
    reply.client = Get32(bootp, 30);  // the last four bytes of the hardware address
    if (reply.client >= rounds.size() || Get32(bootp, 4) != Xid(reply.client, rounds[reply.client]))
      return {};
    uint32_t kind = 0;
    Bytes server;
    for (size_t at = 240; at + 1 < bootp.size() && bootp[at] != 255;) {
      const size_t length = bootp[at] == 0 ? 0 : bootp[at + 1];
      if (bootp[at] == 53 && at + 2 < bootp.size()) kind = bootp[at + 2];
      if (bootp[at] == 54 && at + 6 <= bootp.size())
        server.assign(bootp.begin() + static_cast<long>(at), bootp.begin() + static_cast<long>(at) + 6);
      at += bootp[at] == 0 ? 1 : 2 + length;
    }
    if (kind != 2 && kind != 5) return {};
    reply.offer = kind == 2;
    reply.request_options = {50, 4, bootp[16], bootp[17], bootp[18], bootp[19]};
    Append(reply.request_options, server);
    return reply;
  }

 private:
  static uint32_t Xid(uint32_t client, uint32_t round) { return client * 2654435761U + round; }

  bool Send(uint32_t client, uint32_t round, std::span<const uint8_t> options) {
    Bytes bootp = {1, 1, 6, 0};
    Put32(bootp, Xid(client, round));
    Put32(bootp, 0x00008000);  // answer by broadcast: nobody has to resolve the address
    bootp.resize(28, 0);
    Append(bootp, Mac(client));
    bootp.resize(236, 0);
    Put32(bootp, 0x63825363);
    Append(bootp, options);
    bootp.push_back(255);
    bootp.resize(std::max<size_t>(bootp.size(), 300), 0);
    Bytes frame(6, 0xFF);
    Append(frame, Mac(client));
    Put16(frame, ETH_P_IP);
    Bytes ip = {0x45, 0};
    Put16(ip, static_cast<uint32_t>(28 + bootp.size()));
    Append(ip, Bytes{0, 0, 0, 0, 64, 17, 0, 0, 0, 0, 0, 0, 255, 255, 255, 255});
    uint32_t sum = 0;
    for (size_t i = 0; i < ip.size(); i += 2) sum += Get16(ip, i);
    sum = (sum & 0xFFFF) + (sum >> 16);
    ip[10] = static_cast<uint8_t>(~sum >> 8);
    ip[11] = static_cast<uint8_t>(~sum);
    Append(frame, ip);
    Put16(frame, 68);
    Put16(frame, 67);
    Put16(frame, static_cast<uint32_t>(8 + bootp.size()));
    Put16(frame, 0);
    Append(frame, bootp);
    return send(fd_, frame.data(), frame.size(), 0) > 0;
  }

  Bytes Mac(uint32_t client) const {
    Bytes mac = {2, static_cast<uint8_t>(prefix_)};
    Put32(mac, client);
    return mac;
  }
  const uint32_t prefix_;
};

// ---- DHCPv6 over UDP -----------------------------------------------------------------------------------

class Wire6 final : public Wire {
 public:
  explicit Wire6(const Options& options) : prefix_(options.prefix) {
    fd_ = socket(AF_INET6, SOCK_DGRAM | SOCK_NONBLOCK, 0);
    SetBuffers(fd_);
    const int index = static_cast<int>(if_nametoindex(options.interface.c_str()));
    setsockopt(fd_, IPPROTO_IPV6, IPV6_MULTICAST_IF, &index, sizeof index);
    setsockopt(fd_, SOL_SOCKET, SO_BINDTODEVICE, options.interface.c_str(),
               static_cast<socklen_t>(options.interface.size()));
    sockaddr_in6 own{};
    own.sin6_family = AF_INET6;
    own.sin6_port = htons(546);
    if (bind(fd_, reinterpret_cast<sockaddr*>(&own), sizeof own) != 0)
      throw std::runtime_error("bind to port 546");
    servers_.sin6_family = AF_INET6;
    servers_.sin6_port = htons(547);
    servers_.sin6_scope_id = static_cast<uint32_t>(index);
    inet_pton(AF_INET6, "ff02::1:2", &servers_.sin6_addr);
  }
  bool Ask(uint32_t client, uint32_t round) override { return Send(1, client, round, {}); }
  bool Request(uint32_t client, uint32_t round, std::span<const uint8_t> options) override {
    return Send(3, client, round, options);
  }
  std::optional<Reply> Parse(std::span<const uint8_t> message, const std::vector<uint32_t>& rounds) override {
    if (message.size() < 4 || (message[0] != 2 && message[0] != 7)) return {};
    Reply reply;
    reply.offer = message[0] == 2;
    std::optional<uint32_t> client;
    for (size_t at = 4; at + 4 <= message.size();) {
      const uint32_t code = Get16(message, at), length = Get16(message, at + 2);
      if (at + 4 + length > message.size()) return {};
      if (code == 1 && length == 10) client = Get32(message, at + 10);
      if (code == 2 || code == 3)
        Append(reply.request_options, message.subspan(at, 4 + length));  // server, addresses
      at += 4 + length;
    }
    if (!client || *client >= rounds.size()) return {};
    reply.client = *client;
    return (Get32(message, 0) & 0xFFFFFF) == Xid(*client, rounds[*client]) ? std::optional(reply)
                                                                           : std::nullopt;
  }

 private:
  static uint32_t Xid(uint32_t client, uint32_t round) { return (client * 2654435761U + round) & 0xFFFFFF; }

  bool Send(uint32_t kind, uint32_t client, uint32_t round, std::span<const uint8_t> options) {
    Bytes message;
    Put32(message, kind << 24 | Xid(client, round));
    Append(message, Bytes{0, 1, 0, 10, 0, 3, 0, 1, 2, static_cast<uint8_t>(prefix_)});  // DUID-LL
    Put32(message, client);
    if (options.empty()) {
      Append(message, Bytes{0, 3, 0, 12});  // IA_NA
      Put32(message, client);
      message.resize(message.size() + 8, 0);
    } else {
      Append(message, options);
    }
    Append(message, Bytes{0, 8, 0, 2, 0, 0});  // elapsed time
    return sendto(fd_, message.data(), message.size(), 0, reinterpret_cast<const sockaddr*>(&servers_),
                  sizeof servers_) > 0;
  }
  const uint32_t prefix_;
  sockaddr_in6 servers_{};
};

// ---- The clients ---------------------------------------------------------------------------------------

class Load {
 public:
  explicit Load(const Options& options)
      : options_(options), rounds_(options.clients, 0), asked_(options.clients) {
    if (options.family == 4) {
      wire_ = std::make_unique<Wire4>(options);
    } else {
      wire_ = std::make_unique<Wire6>(options);
    }
    for (uint32_t client = 0; client < options.clients; ++client) idle_.push_back(client);
  }

  std::string Run() {
    const auto start = Clock::now();
    const auto end =
        start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(options_.seconds));
    while (Clock::now() < end && (options_.exchanges == 0 || done_ + failed_ < options_.exchanges)) {
      Begin(std::chrono::duration<double>(Clock::now() - start).count());
      Receive();
      GiveUp();
    }
    return Result(std::chrono::duration<double>(Clock::now() - start).count());
  }

 private:
  static constexpr auto kPatience = std::chrono::seconds(1);

  void Begin(double elapsed) {
    const auto due = options_.rate == 0 ? UINT64_MAX : static_cast<uint64_t>(elapsed * options_.rate);
    while (begun_ < due && busy_.size() < options_.window && !idle_.empty()) {
      if (options_.exchanges != 0 && begun_ >= options_.exchanges) return;
      const uint32_t client = idle_.front();
      idle_.pop_front();
      asked_[client] = Clock::now();
      busy_.push_back({client, ++rounds_[client], asked_[client]});
      ++begun_;
      wire_->Ask(client, rounds_[client]);
    }
  }

  void Receive() {
    pollfd ready{wire_->fd(), POLLIN, 0};
    if (poll(&ready, 1, 1) <= 0) return;
    for (ssize_t got = 0; (got = recv(wire_->fd(), buffer_.data(), buffer_.size(), 0)) > 0;) {
      const auto reply = wire_->Parse({buffer_.data(), static_cast<size_t>(got)}, rounds_);
      if (!reply) continue;
      const auto now = Clock::now();
      waits_us_.push_back(std::chrono::duration<float, std::micro>(now - asked_[reply->client]).count());
      if (reply->offer) {
        asked_[reply->client] = now;
        wire_->Request(reply->client, rounds_[reply->client], reply->request_options);
      } else {
        Finish(reply->client);
        ++done_;
      }
    }
  }

  void Finish(uint32_t client) {
    ++rounds_[client];  // a late answer is none any more
    std::erase_if(busy_, [client](const Busy& busy) { return busy.client == client; });
    idle_.push_back(client);
  }

  void GiveUp() {
    while (!busy_.empty() && Clock::now() - busy_.front().begun > kPatience) {
      Finish(busy_.front().client);
      ++failed_;
    }
  }

  std::string Result(double seconds) {
    std::ranges::sort(waits_us_);
    const auto quantile = [&](double q) {
      return waits_us_.empty()
                 ? 0.0F
                 : waits_us_[static_cast<size_t>(q * static_cast<double>(waits_us_.size() - 1))];
    };
    return fmt::format(
        "{{\"done\":{},\"failed\":{},\"seconds\":{:.3f},\"per_second\":{:.1f},\"p50_us\":{:.1f},\"p99_us\":{:"
        ".1f}}}\n",
        done_, failed_, seconds, static_cast<double>(done_) / seconds, quantile(0.5), quantile(0.99));
  }

  struct Busy {
    uint32_t client, round;
    Clock::time_point begun;
  };
  const Options options_;
  std::unique_ptr<Wire> wire_;
  std::deque<uint32_t> idle_;
  std::deque<Busy> busy_;  // oldest first
  std::vector<uint32_t> rounds_;
  std::vector<Clock::time_point> asked_;
  std::array<uint8_t, 2048> buffer_{};
  std::vector<float> waits_us_;
  uint64_t begun_ = 0, done_ = 0, failed_ = 0;
};

Options Read(int argc, char** argv) {
  Options options;
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string name = argv[i], value = argv[i + 1];
    const auto number = [&] { return static_cast<uint32_t>(std::strtoul(value.c_str(), nullptr, 10)); };
    if (name == "--interface")
      options.interface = value;
    else if (name == "--family")
      options.family = static_cast<int>(number());
    else if (name == "--clients")
      options.clients = std::max(1U, number());
    else if (name == "--window")
      options.window = std::max(1U, number());
    else if (name == "--rate")
      options.rate = std::strtod(value.c_str(), nullptr);
    else if (name == "--seconds")
      options.seconds = std::strtod(value.c_str(), nullptr);
    else if (name == "--exchanges")
      options.exchanges = number();
    else if (name == "--prefix")
      options.prefix = number();
    else
      throw std::runtime_error("unknown option " + name);
  }
  if (if_nametoindex(options.interface.c_str()) == 0) throw std::runtime_error("--interface NAME is needed");
  return options;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    fmt::print("{}", Load(Read(argc, argv)).Run());
    return 0;
  } catch (const std::exception& error) {
    fmt::print(stderr, "live_load: {}\n", error.what());
    return 2;
  }
}
