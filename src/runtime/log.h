// The logger and the error reporter of the utility layer.
//
// The logger has one process-wide destination, level and message function,
// set once by log_init. With no destination it writes to syslog; with a
// destination it is the console writer ("console": standard error and
// standard output, "stderr": standard error only, anything else: silent).
#pragma once

#include <cstdarg>

// Options bits understood by log_init (the first three go to openlog).
inline constexpr int kLogOptPid = 1;      // LOG_PID, always added in syslog mode
inline constexpr int kLogOptCons = 2;     // LOG_CONS
inline constexpr int kLogOptPerror = 32;  // LOG_PERROR
inline constexpr int kLogOptTraceId = 64; // prefix every syslog line with a trace id

// Sets the whole logger state. destination nullptr means syslog; ident
// nullptr means the short invocation name. Returns log_set_level's result.
int log_init(const char* destination, int level, int facility, int options, const char* ident);

// The new level is level & 7; with bit 8 set, a one-digit "CRELM_LOG_LEVEL"
// of 0-7 may raise it. In syslog mode the syslog mask follows the level.
// Returns the level now in force.
int log_set_level(int level);

// The current options bit set.
int log_options();

// The trace id in force ("" unless option bit 64 was given).
const char* log_trace_id();

// printf-style message at a syslog priority (0 emergency ... 7 debug).
void log_message(int priority, const char* format, ...) __attribute__((format(printf, 2, 3)));
void vlog_message(int priority, const char* format, va_list args);

// Formats a message, adds "\nSystem error N: text" when errno is set, and
// prints it on standard error, then on standard output, each followed by a
// newline unless the message already ends in one. exit_status 0: returns 0;
// otherwise ends the process with exit(exit_status). flag has no effect and
// is kept for the callers that pass it.
int report_error(int exit_status, int flag, const char* format, ...) __attribute__((format(printf, 3, 4)));
