// syslog.cpp - the system log of the forwarding process: the program's own functions stand before the C
// library's. In:  lines of the module (and of anything else in the process). Out: records of
// LogOutput::kSyslog. <syslog.h> is not included: a fortified build would define inline versions of these
// very functions.
#include <cstdarg>

#include "platform/faults.h"
#include "platform/logs.h"

namespace {

void Write(int priority, const char* format, va_list args) {
  using namespace vex::platform;
  Watch(Import::syslog, priority, format);
  constexpr int kPriorityMask = 7;  // the rest of the word names the facility
  Logs().WriteV({.output = LogOutput::kSyslog, .level = static_cast<uint32_t>(priority & kPriorityMask)},
                format, args);
}

}  // namespace

extern "C" {

void vsyslog(int priority, const char* format, va_list args) { Write(priority, format, args); }

void syslog(int priority, const char* format, ...) {
  va_list args;
  va_start(args, format);
  Write(priority, format, args);
  va_end(args);
}

// The names that fortified objects call.
void __vsyslog_chk(int priority, int flag, const char* format, va_list args) {
  static_cast<void>(flag);
  Write(priority, format, args);
}

void __syslog_chk(int priority, int flag, const char* format, ...) {
  static_cast<void>(flag);
  va_list args;
  va_start(args, format);
  Write(priority, format, args);
  va_end(args);
}

}  // extern "C"
