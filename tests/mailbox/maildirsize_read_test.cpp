// Reading the Maildir++ size from maildirsize, and the recount fallback.
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>

#include "mailbox/maildirsize_read.h"
#include "mailbox/mailbox_test_support.h"

namespace fs = std::filesystem;

namespace sorvane::test {
namespace {

const char* const kCorrupted = "maildirsize quota header is corrupted. Please run maildir_mend utility to fix.";

class MaildirsizeReadTest : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        maildir = scratch_dir() + "/Maildir";
        make_maildir(maildir, {".Spam"});
        // What a full count finds: 300 bytes in 2 messages.
        write_message(maildir + "/cur/a,S=100:2,S", 0);
        write_message(maildir + "/.Spam/new/b,S=200", 0);
    }

    void write_maildirsize(const std::string& text) { write_file(maildir + "/maildirsize", text); }

    std::pair<long long, long long> read(Recount recount = Recount::Allowed) {
        long long bytes = -1;
        long long count = -1;
        EXPECT_TRUE(maildirsize_read(maildir, bytes, count, recount));
        return {bytes, count};
    }

    std::string maildir;
};

TEST_F(MaildirsizeReadTest, SizeLineOfOurOwnFormatIsRead) {
    write_maildirsize("1000S,0C\n        5000          12\n");
    EXPECT_EQ(read(Recount::Never), std::make_pair(5000LL, 12LL));
}

TEST_F(MaildirsizeReadTest, HeadersAsDeliveryAgentsWriteThemAreRead) {
    for (const char* header : {"1000S", "1000S,50C", "50C", "0S", "50C,1000S"}) {
        write_maildirsize(std::string(header) + "\n40 4\n");
        EXPECT_EQ(read(Recount::Never), std::make_pair(40LL, 4LL)) << header;
    }
}

TEST_F(MaildirsizeReadTest, LaterDeltaLinesIncludingNegativeOnesAreSummed) {
    write_maildirsize("1000S,0C\n         100           2\n50 1\n-30 -1\n  7   1  \n");
    EXPECT_EQ(read(Recount::Never), std::make_pair(127LL, 3LL));
}

TEST_F(MaildirsizeReadTest, IncompleteLastLineIsIgnored) {
    write_maildirsize("1000S\n10 1\n5 1");
    EXPECT_EQ(read(Recount::Never), std::make_pair(10LL, 1LL));
}

// "0S\n" then lines "1 1\n" up to size bytes, the last one padded.
std::string maildirsize_of_size(std::size_t size) {
    std::string text = "0S\n";
    while (text.size() + 4 <= size)
        text += "1 1\n";
    if (text.size() < size)
        text.insert(text.size() - 1, size - text.size(), ' ');
    return text;
}

TEST_F(MaildirsizeReadTest, FileJustUnder5120BytesIsSummed) {
    const std::string text = maildirsize_of_size(5119);
    ASSERT_EQ(text.size(), 5119u);
    write_maildirsize(text);
    EXPECT_EQ(read(Recount::Never), std::make_pair(1279LL, 1279LL));
}

TEST_F(MaildirsizeReadTest, FileOf5120BytesOrMoreIsRecounted) {
    for (const std::size_t size : {5120u, 5121u, 6000u}) {
        write_maildirsize(maildirsize_of_size(size));
        EXPECT_EQ(read(Recount::Allowed), std::make_pair(300LL, 2LL)) << size;
        long long bytes = -1;
        long long count = -1;
        EXPECT_FALSE(maildirsize_read(maildir, bytes, count, Recount::Never)) << size;
        EXPECT_EQ(errno, EFBIG);
    }
}

TEST_F(MaildirsizeReadTest, CorruptedHeaderIsLoggedAndRecounted) {
    SyslogCapture syslog;
    write_maildirsize("abcS,0C\n        5000          12\n");
    EXPECT_EQ(read(), std::make_pair(300LL, 2LL));
    EXPECT_EQ(syslog.messages(), std::vector<std::string>{kCorrupted});
}

TEST_F(MaildirsizeReadTest, NegativeQuotaInHeaderIsCorrupted) {
    SyslogCapture syslog;
    write_maildirsize("-5S,0C\n        5000          12\n");
    long long bytes = 0, count = 0;
    errno = 0;
    EXPECT_FALSE(maildirsize_read(maildir, bytes, count, Recount::Never));
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(syslog.messages(), std::vector<std::string>{kCorrupted});
}

TEST_F(MaildirsizeReadTest, MalformedHeadersAreCorrupted) {
    SyslogCapture syslog;
    for (const char* header : {"", "S", "1000", "1000S,", "1000X", "10 00S", "1000S,,0C"}) {
        write_maildirsize(std::string(header) + "\n40 4\n");
        long long bytes = 0, count = 0;
        EXPECT_FALSE(maildirsize_read(maildir, bytes, count, Recount::Never)) << header;
    }
    EXPECT_EQ(syslog.messages().size(), 7u);
}

TEST_F(MaildirsizeReadTest, NegativeTotalIsRecounted) {
    write_maildirsize("1000S\n10 1\n-20 -1\n");
    EXPECT_EQ(read(), std::make_pair(300LL, 2LL));
    long long bytes = 0, count = 0;
    EXPECT_FALSE(maildirsize_read(maildir, bytes, count, Recount::Never));
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(MaildirsizeReadTest, LineWithoutTwoNumbersIsRecounted) {
    write_maildirsize("1000S\n10 1\nten one\n");
    EXPECT_EQ(read(), std::make_pair(300LL, 2LL));
}

TEST_F(MaildirsizeReadTest, MissingFileIsRecountedOrFailsWithoutRecount) {
    EXPECT_EQ(read(), std::make_pair(300LL, 2LL));
    long long bytes = 0, count = 0;
    EXPECT_FALSE(maildirsize_read(maildir, bytes, count, Recount::Never));
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(MaildirsizeReadTest, LinkedFileIsNotRead) {
    write_file(scratch_dir() + "/planted", "1000S\n999999 9\n");
    fs::create_symlink(scratch_dir() + "/planted", maildir + "/maildirsize");
    EXPECT_EQ(read(), std::make_pair(300LL, 2LL));
}

TEST_F(MaildirsizeReadTest, FifoInPlaceOfTheFileIsNotWaitedFor) {
    ASSERT_EQ(mkfifo((maildir + "/maildirsize").c_str(), 0644), 0);
    EXPECT_EQ(read(), std::make_pair(300LL, 2LL));
}

}  // namespace
}  // namespace sorvane::test
