#include "util/process.h"

#include "runtime/log.h"
#include "util/child_wait.h"
#include "util_test_support.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

namespace sorvane::test {
namespace {

class ForkExecvTest : public SandboxTest {};

// Extra descriptors a careless parent might hand down: none has CLOEXEC.
std::vector<int> open_inheritable_descriptors() {
    std::vector<int> fds;
    fds.push_back(open("/dev/null", O_RDONLY));
    fds.push_back(open("/etc/passwd", O_RDONLY));
    fds.push_back(dup(1));
    fds.push_back(dup2(0, 77));
    return fds;
}

void close_all(const std::vector<int>& fds) {
    for (const int fd : fds)
        close(fd);
}

TEST_F(ForkExecvTest, ChildSeesOnlyTheThreeStandardDescriptors) {
    const std::vector<int> extra = open_inheritable_descriptors();
    std::string out, err;
    const int status = fork_execv_getouterr(out, err, "/bin/sh", {"/bin/sh", "-c", "ls /proc/$$/fd"});
    close_all(extra);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(out, "0\n1\n2\n");
    EXPECT_EQ(err, "");
}

TEST_F(ForkExecvTest, MissingDescriptorsAreDevNullAndGivenOnesArePlaced) {
    const std::string path = scratch_dir() + "/out";
    const int out = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    const pid_t pid = fork_execv("/bin/sh", {"/bin/sh", "-c", "readlink /proc/$$/fd/0 /proc/$$/fd/2; echo to-out"},
                                 kNoDescriptor, out, kNoDescriptor);
    close(out);
    EXPECT_EQ(crelm::util::wait_child_logged(pid, "sh"), 0);
    EXPECT_EQ(read_file(path), "/dev/null\n/dev/null\nto-out\n");
}

TEST_F(ForkExecvTest, SwappedStandardDescriptorsReachTheRightPlaces) {
    const std::string a = scratch_dir() + "/a", b = scratch_dir() + "/b";
    const int fd_a = open(a.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    const int fd_b = open(b.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    const int saved_out = dup(1), saved_err = dup(2);
    dup2(fd_a, 1);
    dup2(fd_b, 2);
    const pid_t pid = fork_execv("/bin/sh", {"/bin/sh", "-c", "echo out; echo err >&2"}, kNoDescriptor, 2, 1);
    dup2(saved_out, 1);
    dup2(saved_err, 2);
    close_all({fd_a, fd_b, saved_out, saved_err});
    EXPECT_EQ(crelm::util::wait_child_logged(pid, "sh"), 0);
    EXPECT_EQ(read_file(a), "err\n");
    EXPECT_EQ(read_file(b), "out\n");
}

TEST_F(ForkExecvTest, FailedExecIsPrintedByTheChildWhichExitsWith127) {
    std::string out, err;
    EXPECT_EQ(fork_execv_getouterr(out, err, "/no/such/program", {"/no/such/program"}), 127);
    EXPECT_EQ(err, "fork_execv: execv(\"/no/such/program\") failed: No such file or directory\n");
    EXPECT_EQ(out, "");
}

TEST_F(ForkExecvTest, QuietRunGivesTheExitCodeAndPrintsNothing) {
    const auto printed = printed_by([] {
        EXPECT_EQ(fork_execv_quiet("/bin/sh", {"/bin/sh", "-c", "echo noise; echo noise >&2; exit 3"}), 3);
    });
    EXPECT_EQ(printed.out, "");
    EXPECT_EQ(printed.err, "");
}

TEST_F(ForkExecvTest, QuietRunOfAKilledChildIsOne) {
    EXPECT_EQ(fork_execv_quiet("/bin/sh", {"/bin/sh", "-c", "kill -TERM $$"}), 1);
}

TEST_F(ForkExecvTest, QuietRunOfAStoppedChildIsMinusOneAndTheChildIsKilledAndReaped) {
    SyslogCapture capture;
    log_init(nullptr, 6, LOG_MAIL, 0, "sorvane");
    EXPECT_EQ(fork_execv_quiet("/bin/sh", {"/bin/sh", "-c", "kill -STOP $$"}), -1);
    const auto messages = capture.messages();
    ASSERT_EQ(messages.size(), 1U);
    // "waitpid(<pid>)=<pid>: process '/bin/sh' stopped by signal 19"
    const pid_t pid = std::stoi(messages[0].substr(messages[0].find('(') + 1));
    EXPECT_EQ(messages[0], "waitpid(" + std::to_string(pid) + ")=" + std::to_string(pid) +
                               ": process '/bin/sh' stopped by signal 19");
    EXPECT_TRUE(already_reaped(pid));
    closelog();
}

}  // namespace

namespace {

TEST_F(ForkExecvTest, ChildThatCannotSetUpItsDescriptorsSaysSoAndExitsWith127) {
    pid_t pid = -1;
    const auto printed = printed_by([&] {
        NoFreeDescriptors guard;
        pid = fork_execv("/bin/true", {"/bin/true"});
        EXPECT_EQ(reap(pid), 127);
    });
    EXPECT_EQ(printed.err, "fork_execv: dup() failed: Too many open files\n");
}

}  // namespace

}  // namespace sorvane::test
