// logs.cpp - see logs.h; with the logging imports but for the IM agent (im_agent.cpp) and syslog
// (syslog.cpp). In:  records. Out: the same records to the sinks that asked for their kind.
#include "platform/logs.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "dhcp_vex_platform.h"
#include "platform/faults.h"

namespace vex::platform {

std::string_view LogOutputName(LogOutput output) {
  constexpr std::array<std::string_view, kLogOutputCount> kNames = {
      "syslog", "framework log", "debug", "diagnostic", "im agent", "assertion"};
  return kNames[static_cast<size_t>(output)];
}

LogHub& Logs() {
  static LogHub* const hub = new LogHub;
  return *hub;
}

void LogHub::Replace(std::shared_ptr<const Entries> entries) {
  uint32_t wanted = 0;
  for (const Entry& entry : *entries) wanted |= entry.outputs;
  entries_ = std::move(entries);
  wanted_.store(wanted, std::memory_order_relaxed);
}

uint64_t LogHub::AddSink(uint32_t outputs, Sink sink) {
  const std::lock_guard lock(mutex_);
  auto entries = std::make_shared<Entries>(*entries_);
  entries->push_back({nextId_, outputs, std::move(sink)});
  Replace(std::move(entries));
  return nextId_++;
}

void LogHub::RemoveSink(uint64_t id) {
  const std::lock_guard lock(mutex_);
  auto entries = std::make_shared<Entries>(*entries_);
  std::erase_if(*entries, [id](const Entry& entry) { return entry.id == id; });
  Replace(std::move(entries));
}

void LogHub::Write(const LogRecord& record) {
  counts_[static_cast<size_t>(record.output)].fetch_add(1, std::memory_order_relaxed);
  if (!Wanted(record.output)) return;
  std::shared_ptr<const Entries> entries;
  {
    const std::lock_guard lock(mutex_);
    entries = entries_;
  }
  for (const Entry& entry : *entries) {
    if ((entry.outputs & MaskOf(record.output)) != 0) entry.sink(record);
  }
}

void LogHub::WriteV(LogRecord record, const char* format, va_list args) {
  if (!Wanted(record.output)) return Write(record);  // only counts
  std::array<char, 2048> text;
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the checker does not follow va_start into here
  const int length = std::vsnprintf(text.data(), text.size(), format, args);
  if (length > 0) record.text = {text.data(), std::min(static_cast<size_t>(length), text.size() - 1)};
  Write(record);
}

uint64_t LogHub::Count(LogOutput output) const {
  return counts_[static_cast<size_t>(output)].load(std::memory_order_relaxed);
}

void LogHub::Reset() {
  const std::lock_guard lock(mutex_);
  Replace(std::make_shared<Entries>());
  for (auto& count : counts_) count.store(0, std::memory_order_relaxed);
}

struct LogCapture::Kept {
  mutable std::mutex mutex;
  std::vector<Line> lines;
};

LogCapture::LogCapture(uint32_t outputs)
    : kept_(std::make_shared<Kept>()), id_(Logs().AddSink(outputs, [kept = kept_](const LogRecord& record) {
        const std::lock_guard lock(kept->mutex);
        kept->lines.push_back({record.output, record.level, std::string(record.text), std::string(record.tag),
                               record.id1, record.id2});
      })) {}

LogCapture::~LogCapture() { Logs().RemoveSink(id_); }

std::vector<LogCapture::Line> LogCapture::Lines() const {
  const std::lock_guard lock(kept_->mutex);
  return kept_->lines;
}

std::vector<std::string> LogCapture::Texts(LogOutput output) const {
  std::vector<std::string> texts;
  for (const Line& line : Lines()) {
    if (line.output == output) texts.push_back(line.text);
  }
  return texts;
}

void LogCapture::Clear() {
  const std::lock_guard lock(kept_->mutex);
  kept_->lines.clear();
}

}  // namespace vex::platform

using namespace vex::platform;  // NOLINT: what follows is nothing but the C surface over that namespace

extern "C" {

void OrbLog(uint32_t level, const char* format, ...) {
  Watch(Import::OrbLog, level, format);
  va_list args;
  va_start(args, format);
  Logs().WriteV({.output = LogOutput::kFrameworkLog, .level = level}, format, args);
  va_end(args);
}

void OrbIMDebugReport(uint32_t id1, uint32_t id2, const char* tag, const char* text) {
  Watch(Import::OrbIMDebugReport, id1, id2, tag, text);
  Logs().Write({.output = LogOutput::kDebugReport, .text = text, .tag = tag, .id1 = id1, .id2 = id2});
}

// Answers the length of the text, as printf does.
int32_t HostDiagPrintf(const char* format, ...) {
  if (const Outcome fault = Watch(Import::HostDiagPrintf, format))
    return static_cast<int32_t>(fault.Code(UINT32_MAX));
  va_list args;
  va_start(args, format);
  va_list again;
  va_copy(again, args);
  Logs().WriteV({.output = LogOutput::kHostDiag}, format, args);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): nor va_copy
  const int length = std::vsnprintf(nullptr, 0, format, again);
  va_end(again);
  va_end(args);
  return length;
}

void OrbMionAssert(const char* sourcePath, uint32_t line, const char* message) {
  Watch(Import::OrbMionAssert, sourcePath, line, message);
  Logs().Write({.output = LogOutput::kAssert,
                .level = line,
                .text = message != nullptr ? message : "",
                .tag = sourcePath != nullptr ? sourcePath : ""});
}

}  // extern "C"
