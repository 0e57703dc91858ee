// How the mail name and delivery code tells its failures: through the log
// at error level, printed on the error stream, or printed and then ending
// the program. The texts carry their own strerror part, so the reporter's
// system error suffix is left out.
#pragma once

namespace crelm::qmail {

// log_message at error level (3).
void log_error(const char* format, ...) __attribute__((format(printf, 1, 2)));
// report_error without ending the program.
void report_failure(const char* format, ...) __attribute__((format(printf, 1, 2)));
// report_error with exit status 1: never returns.
[[noreturn]] void report_fatal(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace crelm::qmail
