// The bounce line of ".qmail-default" is a program line: qmail runs what
// follows its "|" with "sh -c". Whatever /bin/sh is, the phrase must reach
// bouncesaying as one argument, unchanged, and run nothing.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <ostream>
#include <string>
#include <vector>

#include "qmail/bounce_line.h"
#include "qmail/mailname_files.h"
#include "qmail/qmail_test_support.h"

namespace sorvane::test {
namespace {

struct Shell {
    const char* name;
    const char* path;
};

void PrintTo(const Shell& shell, std::ostream* out) {
    *out << shell.name;
}

class BounceShellTest : public QmailTest, public ::testing::WithParamInterface<Shell> {
protected:
    void SetUp() override {
        QmailTest::SetUp();
        make_domain_dir("example.test");
        bin_dir_ = scratch_dir() + "/bin";
        work_dir_ = scratch_dir() + "/work";
        ASSERT_EQ(mkdir(bin_dir_.c_str(), 0755), 0);
        ASSERT_EQ(mkdir(work_dir_.c_str(), 0755), 0);
        // Stands in for bouncesaying: prints how many arguments it got and
        // the first one.
        write_file(bin_dir_ + "/bouncesaying", "#!/bin/sh\nprintf '%s\\n%s' \"$#\" \"$1\"\n", 0755);
    }

    // The command part of the bounce line that set_bounce writes for phrase.
    std::string bounce_command(const std::string& phrase) {
        EXPECT_EQ(set_bounce("example.test", phrase, RejectCleanup::domain_only), 0);
        const std::string line = read_file(std::string(kMailnamesDir) + "/example.test/.qmail-default");
        EXPECT_EQ(line.substr(0, 1), "|");
        EXPECT_EQ(line.back(), '\n');
        return line.substr(1, line.size() - 2);
    }

    // Runs the command as qmail would, in an empty working directory.
    ProcessResult run_as_qmail(const std::string& command) {
        return run_process({"/usr/bin/env", "-C", work_dir_, "PATH=" + bin_dir_ + ":/usr/bin:/bin", "HOME=/tmp",
                            GetParam().path, "-c", command});
    }

    void expect_phrase_delivered(const std::string& phrase, const std::string& shown) {
        const ProcessResult result = run_as_qmail(bounce_command(phrase));
        EXPECT_EQ(result.status, 0) << shown << "\n" << result.err;
        EXPECT_EQ(result.out, "1\n" + shown) << GetParam().name;
        EXPECT_EQ(list_tree(work_dir_), std::vector<std::string>{}) << shown;
    }

    // Each phrase "a<byte>b" for the bytes first to last.
    void expect_bytes_delivered(int first, int last);

    std::string bin_dir_;
    std::string work_dir_;
};

// The line as set_bounce writes it (checked by the tests below and by the
// default file tests), built directly to keep the 255 runs quick.
void BounceShellTest::expect_bytes_delivered(int first, int last) {
    for (int byte = first; byte <= last; ++byte) {
        const std::string phrase = "a" + std::string(1, static_cast<char>(byte)) + "b";
        const std::string shown = byte == '\n' ? "a b" : phrase;
        const ProcessResult result = run_as_qmail(crelm::qmail::bounce_line(phrase).substr(1));
        EXPECT_EQ(result.status, 0) << byte << "\n" << result.err;
        EXPECT_EQ(result.out, "1\n" + shown) << byte;
    }
    EXPECT_EQ(list_tree(work_dir_), std::vector<std::string>{});
}

TEST_P(BounceShellTest, EveryAsciiByteReachesBouncesayingAsItIs) {
    expect_bytes_delivered(1, 127);
}

TEST_P(BounceShellTest, EveryHighByteReachesBouncesayingAsItIs) {
    expect_bytes_delivered(128, 255);
}

TEST_P(BounceShellTest, ShellSyntaxRunsNothing) {
    const std::string phrase =
        "$(touch made1) `touch made2`; touch made3 && touch made4 || touch made5 | tee made6 > made7 < made8 "
        ">>made9 'single' \"double\" # comment ~ ~root * ? [ab] made* {a,b} {touch,made10} a{b,c}d \\ \\\\ "
        "\\n $HOME ${HOME} $((1+1)) !! %1 &\tafter tab\nafter newline\r$'x' =x ^x";
    std::string shown = phrase;
    for (char& c : shown)
        if (c == '\n')
            c = ' ';
    write_file(work_dir_ + "/made8", "input\n");
    const ProcessResult result = run_as_qmail(bounce_command(phrase));
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "1\n" + shown);
    EXPECT_EQ(list_tree(work_dir_), std::vector<std::string>{"made8"});
    EXPECT_EQ(list_tree(bin_dir_), std::vector<std::string>{"bouncesaying"});
}

TEST_P(BounceShellTest, BraceListIsNotExpanded) {
    expect_phrase_delivered("{a,b}", "{a,b}");
    expect_phrase_delivered("no such user {try,again} later", "no such user {try,again} later");
    expect_phrase_delivered("x{1..3}y", "x{1..3}y");
}

TEST_P(BounceShellTest, DefaultPhrase) {
    expect_phrase_delivered("", "This address no longer accepts mail.");
}

INSTANTIATE_TEST_SUITE_P(Shells, BounceShellTest,
                         ::testing::Values(Shell{"dash", "/bin/dash"}, Shell{"bash", "/usr/bin/bash"}),
                         [](const ::testing::TestParamInfo<Shell>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace sorvane::test
