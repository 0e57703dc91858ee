#include "util/process.h"

#include "util_test_support.h"

#include "runtime/log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <regex>

namespace sorvane::test {
namespace {

class PopenExecTest : public SandboxTest {};

TEST_F(PopenExecTest, InputReachesTheCommandsStandardInput) {
    const std::string path = scratch_dir() + "/got";
    EXPECT_EQ(popen_exec("cat > " + path, "line one\nline two\n"), 0);
    EXPECT_EQ(read_file(path), "line one\nline two\n");
}

TEST_F(PopenExecTest, ExitCodeOfTheCommandIsReturned) {
    EXPECT_EQ(popen_exec("cat >/dev/null; exit 4", "data"), 4);
}

TEST_F(PopenExecTest, CommandKilledBySignalHasNoExitCodeBitsAndGivesZero) {
    EXPECT_EQ(popen_exec("kill -KILL $$", ""), 0);
}

TEST_F(PopenExecTest, CommandThatStopsReadingEarlyIsReportedWithTheCounts) {
    const std::string input(1 << 20, 'i');
    std::string message;
    const auto printed = printed_by([&] { EXPECT_EQ(popen_exec("exit 0", input), -1); });
    const std::regex expected("Failed to execute command with input: only [0-9]+ of 1048576 bytes were written\\.\n");
    EXPECT_TRUE(std::regex_match(printed.out, expected)) << printed.out;
    EXPECT_EQ(printed.err, printed.out);
}

TEST_F(PopenExecTest, CommandThatStopsBeforeReadingIsKilledAndReportedWithTheCounts) {
    const std::string input(1 << 20, 'i');
    SyslogCapture capture;
    log_init(nullptr, 6, LOG_MAIL, 0, "sorvane");
    // The pipe fills while the shell is stopped; the writing ends with it.
    const auto printed = printed_by([&] { EXPECT_EQ(popen_exec("kill -STOP $$", input), -1); });
    const std::regex expected("Failed to execute command with input: only [0-9]+ of 1048576 bytes were written\\.\n");
    EXPECT_TRUE(std::regex_match(printed.out, expected)) << printed.out;
    EXPECT_EQ(printed.err, printed.out);
    const auto messages = capture.messages();
    ASSERT_EQ(messages.size(), 1U);
    const pid_t pid = std::stoi(messages[0].substr(messages[0].find('(') + 1));
    const std::string p = std::to_string(pid);
    EXPECT_EQ(messages[0], "waitpid(" + p + ")=" + p + ": process '/bin/sh' stopped by signal 19");
    EXPECT_TRUE(already_reaped(pid));
    closelog();
}

TEST_F(PopenExecTest, AGrandchildHoldingTheInputPipeDoesNotHoldTheCaller) {
    const std::string fifo = scratch_dir() + "/gate";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const std::string input(1 << 20, 'i');
    // The grandchild keeps the input pipe open (through descriptor 3, since a
    // background command's own standard input is /dev/null) without reading
    // it, blocked on the fifo until this test opens it; the shell itself
    // ends at once.
    const std::string command = "exec 3<&0; cat " + fifo + " >/dev/null <&3 3<&- & exit 0";
    const auto printed = printed_by([&] { EXPECT_EQ(popen_exec(command, input), -1); });
    const std::regex expected("Failed to execute command with input: only [0-9]+ of 1048576 bytes were written\\.\n");
    EXPECT_TRUE(std::regex_match(printed.out, expected)) << printed.out;
    const int gate = open(fifo.c_str(), O_WRONLY);
    EXPECT_GE(gate, 0);
    close(gate);
}

TEST_F(PopenExecTest, CommandSeesOnlyTheThreeStandardDescriptors) {
    const int extra = open("/dev/null", O_RDONLY);
    const auto printed = printed_by([] { EXPECT_EQ(popen_exec("ls /proc/$$/fd", ""), 0); });
    close(extra);
    EXPECT_EQ(printed.out, "0\n1\n2\n");
}

TEST_F(PopenExecTest, CommandThatCannotStartIsReported) {
    const auto printed = printed_by([] {
        NoFreeDescriptors guard;
        EXPECT_EQ(popen_exec("true", "x"), -1);
    });
    expect_reported(
        printed, "Failed to execute command with input: either pipe, fork or memory allocation failed.\n"
                 "System error 24: Too many open files\n");
}

}  // namespace

}  // namespace sorvane::test
