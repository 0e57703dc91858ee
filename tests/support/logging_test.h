// A sandbox test whose process logs to syslog as the program does (mail
// facility, info level, no copy on standard error), captured from the start.
#pragma once

#include <syslog.h>

#include <optional>

#include "runtime/log.h"
#include "support/sandbox.h"

namespace sorvane::test {

class LoggingTest : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        capture_.emplace();
        log_init(nullptr, 6, LOG_MAIL, 0, "sorvane");
    }
    void TearDown() override { closelog(); }

    SyslogCapture& syslog_capture() { return *capture_; }

private:
    std::optional<SyslogCapture> capture_;
};

}  // namespace sorvane::test
