// logs.h - the outputs of the module: six kinds of record into sinks that the caller chooses.
// In:  syslog, OrbLog, OrbIMDebugReport, HostDiagPrintf, the IM agent, OrbMionAssert.
// Out: LogRecord to every sink that asked for its kind, on the thread that wrote it; counts per kind.
// Without a sink for a kind nothing is formatted. A sink is called by several threads at once and without any
// lock held; it must not keep the record's views.
#pragma once

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace vex::platform {

enum class LogOutput : uint8_t { kSyslog, kFrameworkLog, kDebugReport, kHostDiag, kImAgent, kAssert, kCount };
constexpr size_t kLogOutputCount = static_cast<size_t>(LogOutput::kCount);
std::string_view LogOutputName(LogOutput output);

struct LogRecord {
  LogOutput output{};
  uint32_t level = 0;       // syslog priority, OrbLog level; IM agent: message kind; assertion: line number
  std::string_view text{};  // IM agent: all parameters one after the other; assertion: its message
  std::string_view tag{};   // debug report: tag; assertion: source path; else empty
  uint32_t id1 = 0;         // debug report: both ids; IM agent: message id and number of parameters
  uint32_t id2 = 0;
};

constexpr uint32_t MaskOf(LogOutput output) { return 1u << static_cast<uint32_t>(output); }
constexpr uint32_t kEveryLogOutput = (1u << kLogOutputCount) - 1;

class LogHub {
 public:
  using Sink = std::function<void(const LogRecord&)>;
  uint64_t AddSink(uint32_t outputs, Sink sink);  // answers a number for RemoveSink
  void RemoveSink(uint64_t id);                   // a call that already started still ends
  bool Wanted(LogOutput output) const {
    return (wanted_.load(std::memory_order_relaxed) & MaskOf(output)) != 0;
  }
  void Write(const LogRecord& record);                              // counts, and calls the sinks
  void WriteV(LogRecord record, const char* format, va_list args);  // formats only when wanted
  uint64_t Count(LogOutput output) const;
  void Reset();  // no sinks, counts 0

 private:
  struct Entry {
    uint64_t id;
    uint32_t outputs;
    Sink sink;
  };
  using Entries = std::vector<Entry>;
  void Replace(std::shared_ptr<const Entries> entries);  // caller holds mutex_
  std::atomic<uint32_t> wanted_{0};
  std::array<std::atomic<uint64_t>, kLogOutputCount> counts_{};
  mutable std::mutex mutex_;  // guards the pointer, not the calls
  std::shared_ptr<const Entries> entries_ = std::make_shared<Entries>();
  uint64_t nextId_ = 1;
};
LogHub& Logs();

// Keeps what is written while it lives, for tests and for a story of one packet.
class LogCapture {
 public:
  struct Line {
    LogOutput output;
    uint32_t level;
    std::string text;
    std::string tag;
    uint32_t id1;
    uint32_t id2;
    friend bool operator==(const Line&, const Line&) = default;
  };
  explicit LogCapture(uint32_t outputs = kEveryLogOutput);
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;
  std::vector<Line> Lines() const;  // in the order of writing
  std::vector<std::string> Texts(LogOutput output) const;
  void Clear();

 private:
  struct Kept;
  const std::shared_ptr<Kept> kept_;  // shared with the sink, which may outlive this object by one call
  const uint64_t id_;
};

// IM agent messages created and neither sent nor freed.
size_t LiveImMessages();
void ResetImMessages();

}  // namespace vex::platform
