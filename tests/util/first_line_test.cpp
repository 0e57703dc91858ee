#include "util/first_line.h"

#include "util_test_support.h"

namespace sorvane::test {
namespace {

class FirstLineTest : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        path_ = "/var/qmail/mailnames/.default_delivery";
    }
    std::string path_;
};

TEST_F(FirstLineTest, ReadsTheFirstLineTrimmedAtBothEnds) {
    write_file(path_, " \t| /usr/bin/deliverquota ./Maildir \r\v\f\nsecond\n");
    std::string line = "stale";
    EXPECT_EQ(read_first_line(line, 4096, path_), 0);
    EXPECT_EQ(line, "| /usr/bin/deliverquota ./Maildir");
}

TEST_F(FirstLineTest, AnEmptyFileGivesAnEmptyLine) {
    write_file(path_, "");
    std::string line = "stale";
    EXPECT_EQ(read_first_line(line, 16, path_), 0);
    EXPECT_EQ(line, "");
}

TEST_F(FirstLineTest, ALineWithoutNewlineIsRead) {
    write_file(path_, "./Maildir/");
    std::string line;
    EXPECT_EQ(read_first_line(line, 16, path_), 0);
    EXPECT_EQ(line, "./Maildir/");
}

TEST_F(FirstLineTest, AFirstLineExactlyAsLongAsTheBufferIsRejected) {
    write_file(path_, std::string(16, 'a') + "\n");
    std::string line;
    const auto printed = printed_by([&] { EXPECT_EQ(read_first_line(line, 16, path_), -1); });
    expect_reported(printed, "The buffer too short\n");
    EXPECT_EQ(line, "");
}

TEST_F(FirstLineTest, AFirstLineOneShorterThanTheBufferFits) {
    write_file(path_, "  " + std::string(15, 'a') + "  \n");
    std::string line;
    EXPECT_EQ(read_first_line(line, 16, path_), 0);
    EXPECT_EQ(line, std::string(15, 'a'));
}

TEST_F(FirstLineTest, AMissingFileIsReported) {
    std::string line;
    const auto printed = printed_by([&] { EXPECT_EQ(read_first_line(line, 16, path_), -1); });
    expect_reported(printed,
                    with_system_error("Unable to open file " + path_ + ": No such file or directory\n", ENOENT));
}

TEST_F(FirstLineTest, AReadErrorIsReported) {
    std::string line;
    const auto printed = printed_by([&] { EXPECT_EQ(read_first_line(line, 16, "/var/qmail"), -1); });
    expect_reported(printed, with_system_error("Unable to read line from file: Is a directory\n", EISDIR));
}

}  // namespace

}  // namespace sorvane::test
