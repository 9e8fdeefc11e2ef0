// faults.cpp - the watch list of the imports: see faults.h.
// In:  Arm, StartCounting, StartRecording; Enter() from every import while the list is not empty.
// Out: g_watchedImports, outcomes, counts and recorded calls.
#include "platform/faults.h"

#include <utility>

namespace vex::platform {
namespace {

constexpr std::array<std::string_view, kImportCount> kNames = {
#define VEX_IMPORT_NAME(name) #name,
    VEX_FALLIBLE_IMPORTS(VEX_IMPORT_NAME) VEX_PLAIN_IMPORTS(VEX_IMPORT_NAME)
#undef VEX_IMPORT_NAME
};

constexpr size_t kFallibleCount =
#define VEX_IMPORT_ONE(name) +1
    0 VEX_FALLIBLE_IMPORTS(VEX_IMPORT_ONE);
#undef VEX_IMPORT_ONE

constexpr size_t Index(Import import) { return static_cast<size_t>(import); }

}  // namespace

constinit std::atomic<uint32_t> g_watchedImports{0};

std::string_view ImportName(Import import) { return kNames[Index(import)]; }

bool CanFail(Import import) { return Index(import) < kFallibleCount; }

const std::vector<Import>& FallibleImports() {
  static const std::vector<Import> imports = [] {
    std::vector<Import> all;
    for (size_t i = 0; i < kFallibleCount; ++i) all.push_back(static_cast<Import>(i));
    return all;
  }();
  return imports;
}

FaultTable& Faults() {
  static FaultTable* const table = new FaultTable;
  return *table;
}

void FaultTable::Publish() {
  bool any = counting_ || recording_;
  for (const Armed& armed : armed_) any = any || armed.on;
  g_watchedImports.store(any ? 1 : 0, std::memory_order_relaxed);
}

void FaultTable::Arm(const Fault& fault) {
  const std::lock_guard lock(mutex_);
  armed_[Index(fault.import)] = {true, fault};
  Publish();
}

void FaultTable::Disarm(Import import) {
  const std::lock_guard lock(mutex_);
  armed_[Index(import)] = {};
  Publish();
}

void FaultTable::DisarmAll() {
  const std::lock_guard lock(mutex_);
  armed_ = {};
  Publish();
}

void FaultTable::StartCounting() {
  const std::lock_guard lock(mutex_);
  counting_ = true;
  Publish();
}

uint64_t FaultTable::Calls(Import import) const {
  const std::lock_guard lock(mutex_);
  return calls_[Index(import)];
}

void FaultTable::StartRecording() {
  const std::lock_guard lock(mutex_);
  recording_ = true;
  Publish();
}

std::vector<Call> FaultTable::TakeRecorded() {
  const std::lock_guard lock(mutex_);
  return std::exchange(recorded_, {});
}

void FaultTable::Reset() {
  const std::lock_guard lock(mutex_);
  armed_ = {};
  calls_ = {};
  recorded_.clear();
  counting_ = recording_ = false;
  Publish();
}

Outcome FaultTable::Enter(Import import, const std::array<uint64_t, 4>& args) {
  const std::lock_guard lock(mutex_);
  ++calls_[Index(import)];
  Outcome outcome;
  if (Armed& armed = armed_[Index(import)]; armed.on && CanFail(import)) {
    if (armed.fault.skip > 0) {
      --armed.fault.skip;
    } else if (armed.fault.times > 0) {
      if (armed.fault.times != Fault::kForever) --armed.fault.times;
      outcome = Outcome(armed.fault.form, armed.fault.code);
    }
  }
  if (recording_) recorded_.push_back({import, args, static_cast<bool>(outcome)});
  return outcome;
}

}  // namespace vex::platform
