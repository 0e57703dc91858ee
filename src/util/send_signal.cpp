#include "util/signals.h"

#include "runtime/log.h"
#include "util/process.h"
#include "util/strict_number.h"

#include <signal.h>
#include <syslog.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace {

constexpr const char* kKillall = "/usr/bin/killall";
constexpr const char* kPs = "/bin/ps";

std::string_view line_around(std::string_view text, std::size_t at) {
    const std::size_t start = text.rfind('\n', at) == std::string_view::npos ? 0 : text.rfind('\n', at) + 1;
    const std::size_t end = text.find('\n', at);
    return text.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start);
}

// The process id at the start of a ps line (blanks around it), or -1.
int leading_pid(std::string_view line) {
    const std::size_t first = line.find_first_not_of(" \t");
    if (first == std::string_view::npos)
        return -1;
    const std::size_t after = line.find_first_of(" \t", first);
    if (after == std::string_view::npos)
        return -1;
    return parse_strict_number(line.substr(first, after - first));
}

// Sends signal to the process on line; false when the line holds no pid.
// 0 is no process id: kill would take it for this process's whole group.
bool signal_line(std::string_view line, int signal) {
    const int pid = leading_pid(line);
    if (pid <= 0) {
        errno = 0;
        report_error(0, 0, "send_signal_field(): malformed ps output: %.*s", static_cast<int>(line.size()),
                     line.data());
        return false;
    }
    if (::kill(pid, signal) != 0) {
        const int failure = errno;
        report_error(0, 0, "send_signal_field(): failed to kill %d: %s", pid, std::strerror(failure));
        log_message(LOG_INFO, "send_signal_field(): failed to kill %d: %s", pid, std::strerror(failure));
    }
    return true;
}

}  // namespace

int send_signal(const std::string& name, int signal) {
    // Built by appending: GCC 12 misreports operator+ on a literal here (-Wrestrict).
    std::string signal_option("-");
    signal_option.append(std::to_string(signal));
    return fork_execv_quiet(kKillall, {kKillall, signal_option, name});
}

int send_signal_field(const std::string& field, const std::string& needle, int signal) {
    std::string out;
    std::string err;
    std::string columns("pid,");
    columns.append(field);
    if (fork_execv_getouterr(out, err, kPs, {kPs, "-Aww", "-o", columns}) != 0) {
        std::fwrite(out.data(), 1, out.size(), stderr);
        std::fwrite(err.data(), 1, err.size(), stderr);
        std::fflush(stderr);
        errno = 0;
        report_error(0, 0, "send_signal_field(): %s failed", kPs);
        return -1;
    }
    int signalled = 0;
    const std::string_view listing = out;
    for (std::size_t at = listing.find(needle); at != std::string_view::npos && !needle.empty();) {
        const std::string_view line = line_around(listing, at);
        if (signal_line(line, signal))
            ++signalled;
        const std::size_t line_end = static_cast<std::size_t>(line.data() - listing.data()) + line.size();
        at = listing.find(needle, line_end);
    }
    return signalled;
}
