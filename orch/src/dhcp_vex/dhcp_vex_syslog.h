// dhcp_vex_syslog.h - the system log.
// Declared here and not by <syslog.h>: a fortified build would turn the calls into __syslog_chk, and the
// forwarding process may replace plain syslog by its own.
#pragma once

inline constexpr int LOG_ERR = 3;
inline constexpr int LOG_INFO = 6;

extern "C" void syslog(int priority, const char* format, ...) __attribute__((format(printf, 2, 3)));
