#include "util/process.h"

#include "util_test_support.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <regex>

namespace sorvane::test {
namespace {

class ForkExecFdTest : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        write_file(scratch_dir() + "/in", "first\nsecond\n");
        in_ = open((scratch_dir() + "/in").c_str(), O_RDONLY | O_CLOEXEC);
        out_ = open((scratch_dir() + "/out").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    }
    void TearDown() override {
        close(in_);
        close(out_);
    }
    int run(const std::string& script, Printed& printed) {
        int status = 0;
        printed = printed_by([&] { status = fork_exec_fd(in_, out_, "/bin/sh", {"/bin/sh", "-c", script}); });
        return status;
    }
    std::string out_text() { return read_file(scratch_dir() + "/out"); }

    int in_ = -1;
    int out_ = -1;
};

TEST_F(ForkExecFdTest, ChildReadsFdInAndWritesFdOut) {
    Printed printed;
    EXPECT_EQ(fork_exec_fd(in_, out_, "/bin/sed", {"/bin/sed", "s/first/1st/"}), 0);
    EXPECT_EQ(out_text(), "1st\nsecond\n");
}

TEST_F(ForkExecFdTest, ExitCodeIsReturned) {
    Printed printed;
    EXPECT_EQ(run("exit 7", printed), 7);
    EXPECT_EQ(printed.out, "");
}

TEST_F(ForkExecFdTest, StandardInputOrOutputAsArgumentIsRefused) {
    Printed printed = printed_by([&] {
        EXPECT_EQ(fork_exec_fd(0, out_, "/bin/true", {"/bin/true"}), -1);
        EXPECT_EQ(fork_exec_fd(in_, 1, "/bin/true", {"/bin/true"}), -1);
    });
    const std::string message = "values 0,1,2 not allowed for variables fd_in & fd_out\n";
    expect_reported(printed, message + message);
}

TEST_F(ForkExecFdTest, StandardErrorAsArgumentIsNotCheckedThoughTheMessageNamesIt) {
    Printed printed = printed_by([&] { EXPECT_EQ(fork_exec_fd(2, 2, "/bin/true", {"/bin/true"}), 0); });
    EXPECT_EQ(printed.out, "");
}

TEST_F(ForkExecFdTest, SeveralKilobytesOfStandardErrorAreRelayedInChunksOfAtMost4095Bytes) {
    Printed printed;
    EXPECT_EQ(run("head -c 10000 /dev/zero | tr '\\000' x >&2", printed), 0);
    // Every chunk is one report; report_error ends each one with a newline.
    const auto chunks = split_lines(printed.out);
    std::size_t total = 0;
    for (const std::string& chunk : chunks) {
        EXPECT_LE(chunk.size(), 4095U);
        EXPECT_EQ(chunk.find_first_not_of('x'), std::string::npos);
        total += chunk.size();
    }
    EXPECT_EQ(total, 10000U);
    EXPECT_GE(chunks.size(), 3U);
    EXPECT_EQ(printed.err, printed.out);
}

TEST_F(ForkExecFdTest, ChildSeesOnlyTheThreeStandardDescriptors) {
    const int extra = open("/dev/null", O_RDONLY);
    const int high = dup2(extra, 90);
    Printed printed;
    EXPECT_EQ(run("ls /proc/$$/fd", printed), 0);
    close(extra);
    close(high);
    EXPECT_EQ(out_text(), "0\n1\n2\n");
}

TEST_F(ForkExecFdTest, KilledChildIsMinusOneWithItsMessage) {
    Printed printed;
    EXPECT_EQ(run("kill -KILL $$", printed), -1);
    const std::regex expected("The child process with pid [0-9]+ killed by signal 9\n");
    EXPECT_TRUE(std::regex_match(printed.out, expected)) << printed.out;
    EXPECT_EQ(printed.err, printed.out);
}

TEST_F(ForkExecFdTest, StoppedChildHoldingTheErrorPipeIsKilledReapedAndMinusOneWithItsMessage) {
    Printed printed;
    // The stopped child still holds the error pipe: the relay ends with the
    // child, not with the pipe (the ctest timeout guards against a hang).
    EXPECT_EQ(run("echo before >&2; kill -STOP $$", printed), -1);
    std::smatch match;
    const std::regex expected("before\nThe child process with pid ([0-9]+) stopped by signal 19\n");
    ASSERT_TRUE(std::regex_match(printed.out, match, expected)) << printed.out;
    EXPECT_EQ(printed.err, printed.out);
    EXPECT_TRUE(already_reaped(std::stoi(match[1])));
}

TEST_F(ForkExecFdTest, AGrandchildHoldingTheErrorPipeDoesNotHoldTheCaller) {
    const std::string fifo = scratch_dir() + "/gate";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    Printed printed;
    // The grandchild blocks on the fifo with the error pipe open until this
    // test opens it; were the relay waiting for the pipe's end it would hang.
    EXPECT_EQ(run("cat " + fifo + " >/dev/null & echo started >&2", printed), 0);
    expect_reported(printed, "started\n");
    const int gate = open(fifo.c_str(), O_WRONLY);
    EXPECT_GE(gate, 0);
    close(gate);
}

TEST_F(ForkExecFdTest, FailedExecIsRelayedAndTheChildExitsWithTheExecResult) {
    Printed printed =
        printed_by([&] { EXPECT_EQ(fork_exec_fd(in_, out_, "/no/such", {"/no/such"}), 255); });
    expect_reported(printed, "Error occured during execv():\nNo such file or directory\n");
}

TEST_F(ForkExecFdTest, FailedPipeEndsTheProgram) {
    EXPECT_EXIT(
        {
            NoFreeDescriptors guard;
            NoFreeDescriptors::restore_at_exit();
            fork_exec_fd(in_, out_, "/bin/true", {"/bin/true"});
        },
        ::testing::ExitedWithCode(1),
        "^fork_exec_fd pipe\\(\\): Too many open files\nSystem error 24: Too many open files\n$");
}

}  // namespace

}  // namespace sorvane::test
