#include "util/child_wait.h"

#include "runtime/log.h"
#include "support/logging_test.h"
#include "support/sandbox.h"
#include "util/printed.h"
#include "util/process.h"

#include <signal.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

using crelm::util::ChildEnd;
using crelm::util::ChildEndKind;

class ChildWaitTest : public sorvane::test::LoggingTest {
protected:
    std::vector<std::string> logged() { return syslog_capture().messages(); }
    std::vector<std::string> records() { return syslog_capture().records(); }
};

std::string priority_of(const std::string& record) {
    return record.substr(0, record.find('>') + 1);
}

TEST_F(ChildWaitTest, ExitedChildGivesItsExitCodeAndLogsNothing) {
    const pid_t pid = fork_execv("/bin/sh", {"/bin/sh", "-c", "exit 42"});
    EXPECT_EQ(crelm::util::wait_child_logged(pid, "sh"), 42);
    EXPECT_TRUE(logged().empty());
}

TEST_F(ChildWaitTest, KilledChildIsMinusOneLoggedAtWarningLevel) {
    const pid_t pid = fork_execv("/bin/sh", {"/bin/sh", "-c", "kill -KILL $$"});
    EXPECT_EQ(crelm::util::wait_child_logged(pid, "sh"), -1);
    const std::string p = std::to_string(pid);
    EXPECT_EQ(logged(), std::vector<std::string>{"waitpid(" + p + ")=" + p + ": process 'sh' killed by signal 9"});
    EXPECT_EQ(priority_of(records().at(0)), "<20>");
}

TEST_F(ChildWaitTest, StoppedChildEndsTheWaitAsMinusOneAndIsKilledAndReaped) {
    const pid_t pid = fork_execv("/bin/sh", {"/bin/sh", "-c", "kill -STOP $$"});
    EXPECT_EQ(crelm::util::wait_child_logged(pid, nullptr), -1);
    const std::string p = std::to_string(pid);
    EXPECT_EQ(logged(),
              std::vector<std::string>{"waitpid(" + p + ")=" + p + ": process '<unknown>' stopped by signal 19"});
    EXPECT_EQ(priority_of(records().at(0)), "<20>");
    EXPECT_TRUE(sorvane::test::already_reaped(pid));
}

TEST_F(ChildWaitTest, PolledStopIsTheStopSignalAndLeavesNoChild) {
    // SIGSTOP: a terminal stop signal could be discarded (a process group
    // without a parent in the session, as under some CI runners).
    const pid_t pid = fork_execv("/bin/sh", {"/bin/sh", "-c", "kill -STOP $$"});
    siginfo_t info{};
    // Waits for the stop without taking it, so that the poll below sees it.
    int waited = -1;
    do {
        waited = waitid(P_PID, static_cast<id_t>(pid), &info, WSTOPPED | WNOWAIT);
    } while (waited != 0 && errno == EINTR);
    ASSERT_EQ(waited, 0) << std::strerror(errno);
    const ChildEnd end = crelm::util::wait_child(pid, crelm::util::WaitMode::poll);
    EXPECT_EQ(end.kind, ChildEndKind::stopped);
    EXPECT_EQ(end.pid, pid);
    EXPECT_EQ(end.value, SIGSTOP);
    EXPECT_TRUE(sorvane::test::already_reaped(pid));
}

TEST_F(ChildWaitTest, FailedForkIsLoggedWithoutWaiting) {
    EXPECT_EQ(crelm::util::wait_child_logged(-1, "qmail-newu"), -1);
    EXPECT_EQ(logged(), std::vector<std::string>{"fork before spawning 'qmail-newu' failed"});
    EXPECT_EQ(priority_of(records().at(0)), "<19>");
}

TEST_F(ChildWaitTest, WaitingForANonChildIsLoggedWithTheSystemError) {
    EXPECT_EQ(crelm::util::wait_child_logged(1, "init"), -1);
    EXPECT_EQ(logged(), std::vector<std::string>{"waitpid(1) for 'init' process failed: No child processes (10)"});
}

TEST_F(ChildWaitTest, UnexpectedZeroAndContinuedEndsAreLogged) {
    EXPECT_EQ(crelm::util::child_end_logged(77, ChildEnd{ChildEndKind::still_running, 0, 0}, "x"), -1);
    EXPECT_EQ(crelm::util::child_end_logged(77, ChildEnd{ChildEndKind::continued, 77, 0}, "x"), -1);
    EXPECT_EQ(logged(), (std::vector<std::string>{"waitpid(77) for 'x' process returned unexpected 0 code",
                                                  "waitpid(77)=77: process 'x' continued"}));
}

TEST_F(ChildWaitTest, PollingARunningChildReportsItStillRunning) {
    int gate[2];
    ASSERT_EQ(pipe(gate), 0);
    const pid_t pid = fork_execv("/bin/cat", {"/bin/cat"}, gate[0]);
    close(gate[0]);
    EXPECT_EQ(crelm::util::wait_child(pid, crelm::util::WaitMode::poll).kind, ChildEndKind::still_running);
    close(gate[1]);
    const ChildEnd end = crelm::util::wait_child(pid);
    EXPECT_EQ(end.kind, ChildEndKind::exited);
    EXPECT_EQ(end.pid, pid);
    EXPECT_EQ(end.value, 0);
}

}  // namespace
