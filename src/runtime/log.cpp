#include "runtime/log.h"

#include "runtime/saved_errno.h"

#include <algorithm>
#include <cerrno>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <strings.h>
#include <syslog.h>
#include <unistd.h>

extern "C" char* program_invocation_short_name;

namespace {

using MessageFunction = void (*)(int priority, const char* format, va_list args);

struct LoggerState {
    std::string destination;
    bool has_destination = false;
    int level = 6;
    int options = 0;
    int facility = LOG_MAIL;
    char ident[64] = "";
    char trace_id[64] = "";
    MessageFunction write = nullptr;
};

LoggerState& logger() {
    static LoggerState state;
    return state;
}

void syslog_writer(int priority, const char* format, va_list args) {
    LoggerState& state = logger();
    if ((state.options & kLogOptTraceId) && state.trace_id[0] != '\0') {
        char buffer[8192];
        int used = std::snprintf(buffer, sizeof buffer, "%s: ", state.trace_id);
        if (used < 0)
            used = 0;
        if (static_cast<std::size_t>(used) < sizeof buffer)
            std::vsnprintf(buffer + used, sizeof buffer - used, format, args);
        syslog(priority, "%s", buffer);
        return;
    }
    vsyslog(priority, format, args);
}

void print_line(FILE* stream, const char* format, va_list args) {
    std::vfprintf(stream, format, args);
    std::fputc('\n', stream);
    std::fflush(stream);
}

void console_writer(int priority, const char* format, va_list args) {
    LoggerState& state = logger();
    if (priority > state.level)
        return;
    const char* destination = state.destination.c_str();
    const bool to_console = strcasecmp(destination, "console") == 0;
    if (!to_console && strcasecmp(destination, "stderr") != 0)
        return;
    va_list copy;
    va_copy(copy, args);
    print_line(stderr, format, copy);
    va_end(copy);
    if (to_console)
        print_line(stdout, format, args);
}

// Builds "S4711" from the invocation name and the pid, unless the caller's
// environment already carries an id; exported so that children share it.
void set_trace_id(LoggerState& state) {
    const char* inherited = std::getenv("CRELM_LOG_TRACE_ID");
    if (inherited != nullptr && inherited[0] != '\0') {
        std::snprintf(state.trace_id, sizeof state.trace_id, "%s", inherited);
        return;
    }
    const char* name = program_invocation_short_name;
    const int first = (name != nullptr && name[0] != '\0') ? std::toupper(static_cast<unsigned char>(name[0])) : '?';
    std::snprintf(state.trace_id, sizeof state.trace_id, "%c%ld", first, static_cast<long>(getpid()));
    setenv("CRELM_LOG_TRACE_ID", state.trace_id, 1);
}

}  // namespace

int log_init(const char* destination, int level, int facility, int options, const char* ident) {
    LoggerState& state = logger();
    state.has_destination = destination != nullptr;
    state.destination = destination != nullptr ? destination : "";
    state.facility = facility;
    if (state.has_destination) {
        state.options = options;
        state.write = console_writer;
        return log_set_level(level);
    }
    closelog();
    state.options = options | kLogOptPid;
    std::snprintf(state.ident, sizeof state.ident, "%s", ident != nullptr ? ident : program_invocation_short_name);
    state.trace_id[0] = '\0';
    if (state.options & kLogOptTraceId)
        set_trace_id(state);
    openlog(state.ident, state.options & (kLogOptPid | kLogOptCons | kLogOptPerror), facility);
    state.write = syslog_writer;
    return log_set_level(level);
}

int log_set_level(int level) {
    LoggerState& state = logger();
    int new_level = level & 7;
    if (level & 8) {
        const char* from_env = std::getenv("CRELM_LOG_LEVEL");
        if (from_env != nullptr && from_env[0] >= '0' && from_env[0] <= '7' && from_env[1] == '\0')
            new_level = std::max(new_level, from_env[0] - '0');
    }
    state.level = new_level;
    if (!state.has_destination)
        setlogmask((1 << (new_level + 1)) - 1);
    return new_level;
}

int log_options() {
    return logger().options;
}

const char* log_trace_id() {
    return logger().trace_id;
}

// A log line between a failing call and its report must not change the
// errno that the report names: writing to a closed or broken console does.
void vlog_message(int priority, const char* format, va_list args) {
    const crelm::SavedErrno kept;
    LoggerState& state = logger();
    if (state.write == nullptr) {
        // Not initialised: behave as plain syslog under the invocation name.
        vsyslog(priority, format, args);
        return;
    }
    state.write(priority, format, args);
}

void log_message(int priority, const char* format, ...) {
    va_list args;
    va_start(args, format);
    vlog_message(priority, format, args);
    va_end(args);
}

namespace {

void print_report(const char* text) {
    const std::size_t length = std::strlen(text);
    const bool ends_in_newline = length > 0 && text[length - 1] == '\n';
    for (FILE* stream : {stderr, stdout}) {
        std::fputs(text, stream);
        if (!ends_in_newline)
            std::fputc('\n', stream);
        std::fflush(stream);
    }
}

// Formats into a growing buffer; an empty string when even that fails.
std::string format_message(const char* format, va_list args) {
    std::string text(4096, '\0');
    va_list copy;
    va_copy(copy, args);
    const int needed = std::vsnprintf(text.data(), text.size(), format, copy);
    va_end(copy);
    if (needed < 0) {
        text.resize(std::strlen(text.c_str()));
        return text;
    }
    if (static_cast<std::size_t>(needed) >= text.size()) {
        text.resize(static_cast<std::size_t>(needed) + 1);
        std::vsnprintf(text.data(), text.size(), format, args);
    }
    text.resize(static_cast<std::size_t>(needed));
    return text;
}

}  // namespace

int report_error(int exit_status, int /*flag*/, const char* format, ...) {
    const int saved_errno = errno;
    std::string message;
    try {
        va_list args;
        va_start(args, format);
        message = format_message(format, args);
        va_end(args);
        errno = saved_errno;
        if (saved_errno != 0)
            message += "\nSystem error " + std::to_string(saved_errno) + ": " + std::strerror(saved_errno);
    } catch (const std::bad_alloc&) {
        message = "Can't allocate memory for error message";
    }
    print_report(message.c_str());
    // A caller that reports the same failure again names the same cause.
    errno = saved_errno;
    if (exit_status != 0)
        std::exit(exit_status);
    return 0;
}
