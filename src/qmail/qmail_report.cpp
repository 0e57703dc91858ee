#include "qmail/qmail_report.h"

#include "runtime/log.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <syslog.h>

namespace crelm::qmail {
namespace {

std::string formatted(const char* format, va_list args) {
    va_list measure;
    va_copy(measure, args);
    const int length = std::vsnprintf(nullptr, 0, format, measure);
    va_end(measure);
    if (length <= 0)
        return {};
    std::string text(static_cast<std::size_t>(length) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), format, args);
    text.pop_back();
    return text;
}

}  // namespace

void log_error(const char* format, ...) {
    va_list args;
    va_start(args, format);
    vlog_message(LOG_ERR, format, args);
    va_end(args);
}

void report_failure(const char* format, ...) {
    va_list args;
    va_start(args, format);
    const std::string text = formatted(format, args);
    va_end(args);
    errno = 0;
    report_error(0, 0, "%s", text.c_str());
}

void report_fatal(const char* format, ...) {
    va_list args;
    va_start(args, format);
    const std::string text = formatted(format, args);
    va_end(args);
    errno = 0;
    report_error(1, 1, "%s", text.c_str());
    std::abort();  // report_error has ended the program
}

}  // namespace crelm::qmail
