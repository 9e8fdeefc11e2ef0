// metrics.cpp - a snapshot as metric families. One row per family; a family without samples is left out.
#include "host/live/metrics.h"

#include <civetweb.h>
#include <fmt/format.h>
#include <prometheus/metric_family.h>
#include <prometheus/text_serializer.h>

#include <limits>
#include <utility>

#include "host/error.h"

namespace vex::host::live {
namespace {

using prometheus::MetricFamily;
using prometheus::MetricType;
using Labels = std::vector<std::pair<std::string, std::string>>;

class Family {
 public:
  Family(std::vector<MetricFamily>& out, std::string name, std::string help, MetricType type) : out_(out) {
    family_.name = std::move(name);
    family_.help = std::move(help);
    family_.type = type;
  }
  ~Family() {
    if (!family_.metric.empty()) out_.push_back(std::move(family_));
  }
  Family(const Family&) = delete;
  Family& operator=(const Family&) = delete;

  Family& Add(const Labels& labels, double value) {
    prometheus::ClientMetric& metric = New(labels);
    if (family_.type == MetricType::Counter) {
      metric.counter.value = value;
    } else {
      metric.gauge.value = value;
    }
    return *this;
  }
  prometheus::ClientMetric& New(const Labels& labels) {
    prometheus::ClientMetric& metric = family_.metric.emplace_back();
    for (const auto& [name, value] : labels) metric.label.push_back({name, value});
    return metric;
  }

 private:
  std::vector<MetricFamily>& out_;
  MetricFamily family_;
};

double Number(uint64_t value) { return static_cast<double>(value); }

class Collection {
 public:
  explicit Collection(const Snapshot& snapshot) : s_(snapshot) {}

  std::vector<MetricFamily> All() {
    Packets();
    Ports();
    Module();
    Budgets();
    Channels();
    Service();
    Latency();
    return std::move(out_);
  }

 private:
  Family Counter(std::string name, std::string help) {
    return {out_, "vex_" + std::move(name) + "_total", std::move(help), MetricType::Counter};
  }
  Family Gauge(std::string name, std::string help) {
    return {out_, "vex_" + std::move(name), std::move(help), MetricType::Gauge};
  }

  // One family per sum of the identity, so that the verdict is in the name.
  void Packets() {
    Family received = Counter("packets_received", "Frames received.");
    for (const PortSnapshot& port : s_.ports) received.Add({{"port", port.record.name}}, Number(port.frames));
    constexpr std::string_view kHelp[] = {"Frames of no kind that is punted.",
                                          "Punted frames that the module leaves alone.",
                                          "DHCP messages refused by a gate and dropped.",
                                          "Frames, or copies of them, that the service received.",
                                          "Frames that the service should have received and did not."};
    for (size_t sum = 0; sum < kSums; ++sum) {
      Family family =
          Counter(fmt::format("packets_{}", Name(static_cast<Sum>(sum))), std::string(kHelp[sum]));
      for (const PortSnapshot& port : s_.ports) AddFates(family, port, static_cast<Sum>(sum));
    }
    Family switched = Counter("frames_switched", "Frames left to the switch, by what it did with them.");
    for (const PortSnapshot& port : s_.ports) {
      for (size_t fate = 0; fate < kSwitchFates; ++fate) {
        switched.Add(
            {{"port", port.record.name}, {"reason", std::string(Name(static_cast<SwitchFate>(fate)))}},
            Number(port.switched[fate]));
      }
    }
  }

  static void AddFates(Family& family, const PortSnapshot& port, Sum sum) {
    for (size_t kind = 0; kind < kKinds; ++kind) {
      for (size_t fate = 0; fate < kFates; ++fate) {
        const FateRow row = RowOf(static_cast<Fate>(fate));
        if (row.sum != sum || (sum == Sum::kNotPresented) != (kind == 0)) continue;
        Labels labels = {{"port", port.record.name}, {"kind", std::string(Name(static_cast<Kind>(kind)))}};
        if (!row.reason.empty()) labels.emplace_back("reason", row.reason);
        family.Add(labels, Number(port.fates[kind][fate]));
      }
    }
  }

  void Ports() {
    const auto each = [&](Family family, auto value) {
      for (const PortSnapshot& port : s_.ports) family.Add({{"port", port.record.name}}, Number(value(port)));
    };
    each(Counter("port_receive_bytes", "Bytes received."), [](const auto& p) { return p.io.rx_bytes; });
    each(Counter("port_transmit_packets", "Frames sent."), [](const auto& p) { return p.io.tx_frames; });
    each(Counter("port_transmit_bytes", "Bytes sent."), [](const auto& p) { return p.io.tx_bytes; });
    each(Counter("port_transmit_failures", "Frames that the kernel did not take."),
         [](const auto& p) { return p.io.tx_failed; });
    each(Counter("port_kernel_drops", "Frames lost because the receive ring was full."),
         [](const auto& p) { return p.io.kernel_drops + p.io.oversize; });
    each(Counter("port_checksums_completed", "Partial checksums of local senders completed."),
         [](const auto& p) { return p.io.checksums; });
    each(Counter("port_link_events", "Times that the interface went down."),
         [](const auto& p) { return p.io.link_events; });
  }

  void Module() {
    for (size_t i = 0; i < kStatNames.size(); ++i) {
      Counter(fmt::format("module_{}", kStatNames[i]), fmt::format("Statistics counter {} of the module.", i))
          .Add({}, Number(s_.stats[i]));
    }
    Counter("module_starts", "Times that the module was started.").Add({}, Number(s_.module_starts));
  }

  // Interface budgets carry the port, VLAN budgets the VLAN; kind tells the scope and the IP version.
  void Budgets() {
    Family limit = Gauge("budget_limit_packets_per_second", "Packets per second that a budget admits.");
    Family used = Gauge("budget_used_packets", "Packets that a budget admitted in the current second.");
    Family refused = Counter("budget_refused_packets", "Packets that a budget refused.");
    for (const BudgetRow& budget : s_.budgets) {
      const Labels labels = LabelsOf(budget.scope);
      if (budget.enabled) {
        limit.Add(labels, budget.limit);
        used.Add(labels, budget.used);
      }
      if (budget.enabled || budget.refused != 0) refused.Add(labels, Number(budget.refused));
    }
  }

  Labels LabelsOf(const Scope& scope) const {
    const std::string version = scope.version == 0 ? "" : fmt::format("_v{}", scope.version);
    switch (scope.kind) {
      case ScopeKind::kInterface:
        return {{"port", PortName(scope.index)}, {"kind", "interface" + version}};
      case ScopeKind::kVlan:
        return {{"vlan", fmt::format("{}", scope.index)}, {"kind", "vlan" + version}};
      case ScopeKind::kGlobal:
        return {{"kind", "global" + version}};
      case ScopeKind::kDegrade:
        return {{"kind", "degrade"}};
      case ScopeKind::kPeerLink:
        return {{"kind", fmt::format("peer_link_{}", scope.index)}};
      case ScopeKind::kPeerLinkOff:
        return {{"kind", "peer_link_off"}};
    }
    return {};
  }

  std::string PortName(uint32_t index) const {
    for (const PortSnapshot& port : s_.ports) {
      if (port.record.index == index) return port.record.name;
    }
    return fmt::format("{}", index);
  }

  void Channels() {
    const auto each = [&](Family family, auto value) {
      for (const ChannelSnapshot& channel : s_.channels) {
        const size_t slash = channel.name.find('/');
        family.Add({{"kind", slash == std::string::npos ? channel.name : channel.name.substr(slash + 1)}},
                   Number(value(channel)));
      }
    };
    each(Gauge("channel_depth_packets", "Packets that a channel can hold."),
         [](const auto& c) { return c.depth; });
    each(Gauge("channel_queued_packets", "Packets waiting in a channel."),
         [](const auto& c) { return c.queued; });
    each(Counter("channel_sent_packets", "Packets that a channel took."),
         [](const auto& c) { return c.stats.sent; });
    each(Counter("channel_refused_packets", "Packets that a full channel refused."),
         [](const auto& c) { return c.stats.refused; });
  }

  void Service() {
    Gauge("bindings", "Bindings known.").Add({}, Number(s_.bindings));
    Gauge("stations", "Stations that the switch has learned.").Add({}, Number(s_.stations));
    Gauge("buffers_in_use", "Packet buffers in use.").Add({}, s_.pool.inUse);
    Counter("buffers_exhausted", "Packets lost because no buffer was free.")
        .Add({}, Number(s_.pool.exhausted));
    Family changes = Counter("binding_changes", "Changes of the binding table.");
    const std::pair<const char*, uint64_t> kChanges[] = {
        {"made", s_.binding_stats.made},       {"renewed", s_.binding_stats.renewed},
        {"removed", s_.binding_stats.removed}, {"expired", s_.binding_stats.expired},
        {"refused", s_.binding_stats.refused}, {"unmatched", s_.binding_stats.unmatched}};
    for (const auto& [kind, count] : kChanges) changes.Add({{"kind", kind}}, Number(count));
    Family outcomes =
        Counter("service_messages", "Messages that the service took from its channels, by outcome.");
    Family events = Counter("service_events", "What happened beside the outcomes.");
    for (size_t i = 0; i < service::kCounterCount; ++i) {
      Family& family = i < service::kOutcomeCount ? outcomes : events;
      family.Add({{"reason", std::string(service::Name(static_cast<service::Counter>(i)))}},
                 Number(s_.service.totals[i]));
    }
    Family share = Counter("instance_messages", "Messages that each service instance took.");
    for (size_t thread = 1; thread < s_.service.received_by_thread.size(); ++thread) {
      share.Add({{"instance", fmt::format("{}", thread - 1)}}, Number(s_.service.received_by_thread[thread]));
    }
    Family unassigned = Counter("unassigned_messages", "Messages that belong to no instance.");
    unassigned.Add({}, Number(s_.service.received_by_thread[0]));
  }

  void Latency() {
    Family family(out_, "vex_hook_duration_seconds", "Time that the hook took per packet.",
                  MetricType::Histogram);
    auto& histogram = family.New({}).histogram;
    uint64_t cumulative = 0;
    for (size_t i = 0; i < s_.latency.size(); ++i) {
      cumulative += s_.latency[i];
      prometheus::ClientMetric::Bucket bucket;
      bucket.cumulative_count = cumulative;
      bucket.upper_bound = i < HookLatency::kBoundsNs.size() ? HookLatency::kBoundsNs[i] * 1e-9
                                                             : std::numeric_limits<double>::infinity();
      histogram.bucket.push_back(bucket);
    }
    histogram.sample_count = cumulative;
    histogram.sample_sum = Number(s_.latency_sum_ns) * 1e-9;
  }

  const Snapshot& s_;
  std::vector<MetricFamily> out_;
};

int Serve(mg_connection* connection, void* source) {
  const auto& take = *static_cast<const SnapshotSource*>(source);
  const std::string body = prometheus::TextSerializer().Serialize(FamiliesOf(take()));
  mg_printf(connection,
            "HTTP/1.1 200 OK\r\nContent-Type: text/plain; version=0.0.4; charset=utf-8\r\n"
            "Content-Length: %zu\r\nConnection: close\r\n\r\n",
            body.size());
  mg_write(connection, body.data(), body.size());
  return 200;
}

// What the web server complains about while it starts.
int KeepMessage(const mg_connection* connection, const char* message) {
  auto* const kept = static_cast<std::string*>(mg_get_user_data(mg_get_context(connection)));
  if (kept != nullptr && kept->empty()) *kept = message;
  return 1;
}

}  // namespace

std::vector<MetricFamily> FamiliesOf(const Snapshot& snapshot) { return Collection(snapshot).All(); }

// prometheus-cpp's own exposer adds families about itself that carry another prefix; its serializer behind
// the same web server does not.
struct Metrics::Impl {
  SnapshotSource source;
  std::string complaint;
  mg_context* server = nullptr;
};

Metrics::Metrics(const std::string& address, SnapshotSource source)
    : impl_(new Impl{std::move(source), "", nullptr}) {
  const char* const options[] = {"listening_ports", address.c_str(), "num_threads", "2", nullptr};
  mg_callbacks callbacks{};
  callbacks.log_message = KeepMessage;
  impl_->server = mg_start(&callbacks, &impl_->complaint, const_cast<const char**>(options));
  if (impl_->server == nullptr) {
    throw InputError(fmt::format("metrics on {}: {}; give ADDRESS:PORT with a free port, like 127.0.0.1:9967",
                                 address,
                                 impl_->complaint.empty() ? "cannot listen there" : impl_->complaint));
  }
  mg_set_request_handler(impl_->server, "/metrics$", Serve, &impl_->source);
}

Metrics::~Metrics() {
  if (impl_->server != nullptr) mg_stop(impl_->server);
}

}  // namespace vex::host::live
