// The error reporter, the console writer and the error stream, observed
// from a process of their own.
#include <cstring>

#include "support/sandbox.h"

namespace sorvane::test {
namespace {

class ReportErrorTest : public SandboxTest {
protected:
    ProcessResult probe(const std::vector<std::string>& args) {
        std::vector<std::string> argv{test_program_path("log_probe")};
        argv.insert(argv.end(), args.begin(), args.end());
        return run_process(argv);
    }
};

TEST_F(ReportErrorTest, MessageWithoutNewlineGetsExactlyOne) {
    const auto result = probe({"report", "0", "0", "abc"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "abc\n");
    EXPECT_EQ(result.out, "abc\nreturned 0\n");
}

TEST_F(ReportErrorTest, MessageEndingInNewlineGetsNoSecondOne) {
    const auto result = probe({"report", "0", "0", "abc-newline"});
    EXPECT_EQ(result.err, "abc\n");
    EXPECT_EQ(result.out, "abc\nreturned 0\n");
}

TEST_F(ReportErrorTest, ErrnoAddsTheSystemErrorLineOnBothStreams) {
    const auto result = probe({"report", "0", "2", "abc"});
    const std::string expected = std::string("abc\nSystem error 2: ") + std::strerror(2) + "\n";
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, expected);
    EXPECT_EQ(result.out, expected + "returned 0\n");
}

TEST_F(ReportErrorTest, FormatArgumentsAreApplied) {
    const auto result = probe({"report", "0", "0", "format"});
    EXPECT_EQ(result.err, "value 42 and text\n");
}

TEST_F(ReportErrorTest, A5000CharacterMessageIsPrintedWhole) {
    const auto result = probe({"report", "0", "0", "long5000"});
    const std::string expected = std::string(4999, 'x') + "y\n";
    EXPECT_EQ(result.err, expected);
    EXPECT_EQ(result.out, expected + "returned 0\n");
}

TEST_F(ReportErrorTest, NonZeroExitStatusEndsTheProcess) {
    const auto result = probe({"report", "3", "0", "abc"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.err, "abc\n");
    EXPECT_EQ(result.out, "abc\n");  // "returned" is never reached
}

TEST_F(ReportErrorTest, FatalReportWithErrnoStillPrintsTheSystemError) {
    const auto result = probe({"report", "1", "13", "abc"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, std::string("abc\nSystem error 13: ") + std::strerror(13) + "\n");
}

class ConsoleWriterTest : public ReportErrorTest {};

TEST_F(ConsoleWriterTest, ConsoleWritesBothStreams) {
    const auto result = probe({"console", "console", "6", "6", "hello"});
    EXPECT_EQ(result.err, "hello\n");
    EXPECT_EQ(result.out, "hello\n");
}

TEST_F(ConsoleWriterTest, DestinationIsComparedWithoutCase) {
    const auto result = probe({"console", "StdErr", "6", "3", "hello"});
    EXPECT_EQ(result.err, "hello\n");
    EXPECT_EQ(result.out, "");
}

TEST_F(ConsoleWriterTest, MessageAboveTheLevelIsDropped) {
    const auto result = probe({"console", "console", "4", "6", "hello"});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, "");
}

TEST_F(ConsoleWriterTest, MessageAtTheLevelIsKept) {
    const auto result = probe({"console", "console", "4", "4", "hello"});
    EXPECT_EQ(result.err, "hello\n");
}

TEST_F(ConsoleWriterTest, UnknownDestinationDropsEverything) {
    const auto result = probe({"console", "file", "7", "0", "hello"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, "");
}

class ErrorStreamTest : public ReportErrorTest {};

TEST_F(ErrorStreamTest, CharactersReachStandardErrorAtOnceAndRepeatOnOutputAtFlushAndExit) {
    const auto result = probe({"error-stream"});
    EXPECT_EQ(result.status, 0);
    // "abc" precedes the "|" written straight to standard error: no buffering.
    EXPECT_EQ(result.err, "abc|\ntail");
    // Standard output sees the pending text only at the flush, then at exit.
    EXPECT_EQ(result.out, "<out>abc\ntail");
}

}  // namespace
}  // namespace sorvane::test
