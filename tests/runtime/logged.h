// Runs code in a forked child whose logger is set up as the program's entry
// point sets it up, and returns what syslog received from it.
#pragma once

#include <string>
#include <vector>

#include "runtime/child.h"
#include "runtime/log.h"
#include "support/sandbox.h"

namespace sorvane::test {

struct LogRecord {
    int priority;  // facility and level, as sent
    std::string text;
    bool operator==(const LogRecord&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const LogRecord& record) {
    return out << "<" << record.priority << ">" << record.text;
}

struct LoggedRun {
    ProcessResult process;
    std::vector<LogRecord> records;
};

inline LoggedRun run_logged(const std::function<int()>& action) {
    SyslogCapture capture;
    LoggedRun run;
    run.process = run_in_child([&] {
        log_init(nullptr, 6, 16, 32, "sorvane");
        return action();
    }, [&] { capture.records(); });
    const std::vector<std::string> raw = capture.records();
    const std::vector<std::string> texts = capture.messages();
    for (std::size_t i = 0; i < raw.size(); ++i)
        run.records.push_back({std::stoi(raw[i].substr(1, raw[i].find('>') - 1)), texts[i]});
    return run;
}

}  // namespace sorvane::test
