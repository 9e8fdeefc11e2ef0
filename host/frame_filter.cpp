// frame_filter.cpp - compiled once by libpcap, run over each frame in memory.
#include "host/frame_filter.h"

#include <fmt/format.h>
#include <pcap/pcap.h>

#include "host/error.h"

namespace vex::host {
namespace {

constexpr int kSnapLength = 262144;  // what an accepting program answers; no bound on the frames

}  // namespace

struct FrameFilter::Program {
  bpf_program code{};
  ~Program() { pcap_freecode(&code); }
};

FrameFilter::FrameFilter(const std::string& expression) {
  if (expression.empty()) return;
  const std::unique_ptr<pcap_t, void (*)(pcap_t*)> handle(pcap_open_dead(DLT_EN10MB, kSnapLength),
                                                          pcap_close);
  auto program = std::make_unique<Program>();
  constexpr int kOptimise = 1;
  if (pcap_compile(handle.get(), &program->code, expression.c_str(), kOptimise, PCAP_NETMASK_UNKNOWN) != 0) {
    throw InputError(
        fmt::format("--filter '{}': {}; see pcap-filter(7)", expression, pcap_geterr(handle.get())));
  }
  program_ = std::move(program);
}

FrameFilter::~FrameFilter() = default;

bool FrameFilter::Run(const Frame& frame) const {
  pcap_pkthdr header{};
  header.caplen = static_cast<bpf_u_int32>(frame.bytes.size());
  header.len = frame.original_length;
  return pcap_offline_filter(&program_->code, &header, frame.bytes.data()) != 0;
}

}  // namespace vex::host
