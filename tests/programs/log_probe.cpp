// Drives the logger, the error reporter and the error stream from a process
// of its own, so that tests can read what reaches each stream and syslog.
//
//   log_probe report <exit_status> <errno> <abc|abc-newline|long5000|format>
//   log_probe console <destination> <level> <priority> <text>
//   log_probe syslog <options> <level> [ident]
//   log_probe error-stream
#include <syslog.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>

#include "runtime/error_stream.h"
#include "runtime/log.h"

namespace {

int report(int exit_status, int error_number, const std::string& kind) {
    errno = error_number;
    int result = 0;
    if (kind == "abc")
        result = report_error(exit_status, 1, "abc");
    else if (kind == "abc-newline")
        result = report_error(exit_status, 1, "abc\n");
    else if (kind == "long5000")
        result = report_error(exit_status, 0, "%s", std::string(4999, 'x').append("y").c_str());
    else
        result = report_error(exit_status, 0, "value %d and %s", 42, "text");
    std::printf("returned %d\n", result);
    return 0;
}

int console(const char* destination, int level, int priority, const char* text) {
    log_init(destination, level, LOG_MAIL, 0, "probe");
    log_message(priority, "%s", text);
    return 0;
}

int to_syslog(int options, int level, const char* ident) {
    log_init(nullptr, level, LOG_MAIL, options, ident);
    for (int priority = 0; priority <= 7; ++priority)
        log_message(priority, "message at %d", priority);
    const char* trace = std::getenv("CRELM_LOG_TRACE_ID");
    std::printf("trace=%s\n", trace != nullptr ? trace : "(unset)");
    return 0;
}

int error_stream_probe() {
    auto& errors = crelm::error_stream();
    errors << "abc";
    std::cerr << "|";
    std::cout << "<out>" << std::flush;
    errors << std::endl;
    errors << "tail";
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "report" && argc == 5)
        return report(std::atoi(argv[2]), std::atoi(argv[3]), argv[4]);
    if (mode == "console" && argc == 6)
        return console(argv[2], std::atoi(argv[3]), std::atoi(argv[4]), argv[5]);
    if (mode == "syslog" && argc >= 4)
        return to_syslog(std::atoi(argv[2]), std::atoi(argv[3]), argc > 4 ? argv[4] : nullptr);
    if (mode == "error-stream")
        return error_stream_probe();
    std::fprintf(stderr, "usage: log_probe report|console|syslog|error-stream ...\n");
    return 64;
}
