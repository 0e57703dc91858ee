#include "util/process.h"

#include "runtime/log.h"
#include "util_test_support.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

namespace sorvane::test {
namespace {

class GetOutErrTest : public SandboxTest {};

TEST_F(GetOutErrTest, CollectsLargeOutputOnBothStreams) {
    std::string out, err;
    const int status = fork_execv_getouterr(
        out, err, "/bin/sh",
        {"/bin/sh", "-c",
         "head -c 300000 /dev/zero | tr '\\000' o; head -c 200000 /dev/zero | tr '\\000' e >&2; exit 5"});
    EXPECT_EQ(status, 5);
    EXPECT_EQ(out, std::string(300000, 'o'));
    EXPECT_EQ(err, std::string(200000, 'e'));
}

TEST_F(GetOutErrTest, PreviousBufferContentsAreReplaced) {
    std::string out = "old", err = "old";
    EXPECT_EQ(fork_execv_getouterr(out, err, "/bin/echo", {"/bin/echo", "new"}), 0);
    EXPECT_EQ(out, "new\n");
    EXPECT_EQ(err, "");
}

TEST_F(GetOutErrTest, ChildStandardInputIsDevNull) {
    std::string out, err;
    EXPECT_EQ(fork_execv_getouterr(out, err, "/bin/cat", {"/bin/cat"}), 0);
    EXPECT_EQ(out, "");
}

TEST_F(GetOutErrTest, AGrandchildHoldingThePipesDoesNotHoldTheCaller) {
    const std::string fifo = scratch_dir() + "/gate";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    std::string out, err;
    // The grandchild blocks on the fifo with both pipes open until this test
    // opens it; were the collection waiting for the pipes' end it would hang.
    EXPECT_EQ(
        fork_execv_getouterr(out, err, "/bin/sh", {"/bin/sh", "-c", "cat " + fifo + " >/dev/null & echo started"}), 0);
    EXPECT_EQ(out, "started\n");
    const int gate = open(fifo.c_str(), O_WRONLY);
    EXPECT_GE(gate, 0);
    close(gate);
}

TEST_F(GetOutErrTest, KilledChildIsMinusOneAndLogged) {
    SyslogCapture capture;
    log_init(nullptr, 6, LOG_MAIL, 0, "sorvane");
    std::string out, err;
    EXPECT_EQ(fork_execv_getouterr(out, err, "/bin/sh", {"/bin/sh", "-c", "echo before; kill -KILL $$"}), -1);
    EXPECT_EQ(out, "before\n");
    const auto messages = capture.messages();
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_NE(messages[0].find(": process '/bin/sh' killed by signal 9"), std::string::npos) << messages[0];
    closelog();
}

TEST_F(GetOutErrTest, StoppedChildIsKilledReapedMinusOneAndLoggedAsStopped) {
    SyslogCapture capture;
    log_init(nullptr, 6, LOG_MAIL, 0, "sorvane");
    std::string out, err;
    EXPECT_EQ(fork_execv_getouterr(out, err, "/bin/sh", {"/bin/sh", "-c", "echo before; kill -STOP $$"}), -1);
    EXPECT_EQ(out, "before\n");
    EXPECT_EQ(err, "");
    const auto messages = capture.messages();
    ASSERT_EQ(messages.size(), 1U);
    const pid_t pid = std::stoi(messages[0].substr(messages[0].find('(') + 1));
    const std::string p = std::to_string(pid);
    EXPECT_EQ(messages[0], "waitpid(" + p + ")=" + p + ": process '/bin/sh' stopped by signal 19");
    EXPECT_TRUE(already_reaped(pid));
    closelog();
}

TEST_F(GetOutErrTest, AGrandchildThatNeverStopsWritingDoesNotHoldTheCaller) {
    std::string out, err;
    // After the child's end only what the pipe holds then is taken; the
    // grandchild keeps writing until this test ends it.
    EXPECT_EQ(fork_execv_getouterr(out, err, "/bin/sh", {"/bin/sh", "-c", "yes >&2 & echo $!"}), 0);
    const pid_t writer = std::stoi(out);
    EXPECT_EQ(out, std::to_string(writer) + "\n");
    EXPECT_EQ(kill(writer, SIGKILL), 0);
    // Whatever part of the grandchild's output was taken is whole "y\n" lines
    // but the last.
    std::string expected_err;
    while (expected_err.size() < err.size())
        expected_err += "y\n";
    EXPECT_EQ(err, expected_err.substr(0, err.size()));
}

TEST_F(GetOutErrTest, FailedPipeEndsTheProgram) {
    std::string out, err;
    EXPECT_EXIT(
        {
            NoFreeDescriptors guard;
            NoFreeDescriptors::restore_at_exit();
            fork_execv_getouterr(out, err, "/bin/true", {"/bin/true"});
        },
        ::testing::ExitedWithCode(1),
        "^fork_execv_getouterr: pipe\\(\\) failed\nSystem error 24: Too many open files\n$");
}

}  // namespace

}  // namespace sorvane::test
