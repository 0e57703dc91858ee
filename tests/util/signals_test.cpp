#include "util/signals.h"

#include "runtime/log.h"
#include "util/process.h"
#include "util_test_support.h"

#include <signal.h>
#include <syslog.h>
#include <unistd.h>

namespace sorvane::test {
namespace {

class SignalsTest : public SandboxTest {};

void fake_ps(const std::string& listing, int status = 0) {
    install_program("/bin/ps", "#!/bin/sh\nprintf '%s' '" + listing + "'\nexit " + std::to_string(status) + "\n");
}

TEST_F(SignalsTest, SendSignalRunsKillallWithTheSignalAndName) {
    EXPECT_EQ(send_signal("qmail-send", 1), 0);
    EXPECT_EQ(fake_calls("killall"), std::vector<std::string>{"-1 qmail-send"});
}

TEST_F(SignalsTest, SendSignalGivesKillallsExitCode) {
    set_fake_status("killall", 1);
    EXPECT_EQ(send_signal("qmail-send", 15), 1);
    EXPECT_EQ(fake_calls("killall"), std::vector<std::string>{"-15 qmail-send"});
}

TEST_F(SignalsTest, NoMatchingProcessGivesZero) {
    const auto printed =
        printed_by([] { EXPECT_EQ(send_signal_field("args", "no-such-process-anywhere-4711", SIGTERM), 0); });
    EXPECT_EQ(printed.out, "");
}

TEST_F(SignalsTest, MatchingProcessIsSignalledAndCounted) {
    const pid_t sleeper = fork_execv("/bin/sleep", {"/bin/sleep", "86399"});
    EXPECT_EQ(send_signal_field("args", "sleep 86399", SIGTERM), 1);
    EXPECT_EQ(reap(sleeper), 128 + SIGTERM);
}

TEST_F(SignalsTest, MalformedLinesAreReportedAndSkipped) {
    fake_ps("  PID COMMAND\nabc needle\n 12x needle\n 0 needle\n");
    const auto printed = printed_by([] { EXPECT_EQ(send_signal_field("comm", "needle", SIGTERM), 0); });
    expect_reported(printed, "send_signal_field(): malformed ps output: abc needle\n"
                                            "send_signal_field(): malformed ps output:  12x needle\n"
                                            "send_signal_field(): malformed ps output:  0 needle\n");
}

TEST_F(SignalsTest, FailedKillIsReportedLoggedAndStillCounted) {
    SyslogCapture capture;
    log_init(nullptr, 6, LOG_MAIL, 0, "sorvane");
    fake_ps("  PID COMMAND\n 2147483647 needle\n 2147483646 needle\n");
    const auto printed = printed_by([] { EXPECT_EQ(send_signal_field("comm", "needle", 0), 2); });
    const std::string first = "send_signal_field(): failed to kill 2147483647: No such process";
    const std::string second = "send_signal_field(): failed to kill 2147483646: No such process";
    const std::string suffix = "\nSystem error 3: No such process\n";
    expect_reported(printed, first + suffix + second + suffix);
    EXPECT_EQ(capture.messages(), (std::vector<std::string>{first, second}));
    EXPECT_EQ(capture.records().at(0).substr(0, 4), "<22>");
    closelog();
}

TEST_F(SignalsTest, FailingPsPrintsItsOutputAndGivesMinusOne) {
    fake_ps("ps: broken\n", 1);
    const auto printed = printed_by([] { EXPECT_EQ(send_signal_field("comm", "needle", SIGTERM), -1); });
    EXPECT_EQ(printed.err, "ps: broken\nsend_signal_field(): /bin/ps failed\n");
    EXPECT_EQ(printed.out, "send_signal_field(): /bin/ps failed\n");
}

TEST_F(SignalsTest, PsIsAskedForThePidAndTheField) {
    install_program("/bin/ps", "#!/bin/sh\nprintf '%s\\n' \"$*\" > /tmp/ps-args\n");
    EXPECT_EQ(send_signal_field("comm", "needle", SIGTERM), 0);
    EXPECT_EQ(read_file("/tmp/ps-args"), "-Aww -o pid,comm\n");
}

}  // namespace

}  // namespace sorvane::test
