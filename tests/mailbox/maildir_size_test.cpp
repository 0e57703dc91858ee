// Writing a mailbox's maildirsize for its quota, and the size a command
// reports for a mailbox.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "mailbox/mailbox_disk_usage.h"
#include "mailbox/mailbox_test_support.h"
#include "mailbox/maildir_size.h"
#include "mailbox/maildirsize_read.h"

namespace fs = std::filesystem;

namespace sorvane::test {
namespace {

class MaildirSizeTest : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        mailbox = make_mailbox("example.test", "info");
        maildirsize = mailbox + "/Maildir/maildirsize";
    }

    std::string mailbox;
    std::string maildirsize;
};

std::string working_directory() { return fs::current_path().string(); }

TEST_F(MaildirSizeTest, QuotaIsWrittenOwnedByPopuser) {
    fs::remove_all(mailbox + "/@attachments");
    write_message(mailbox + "/Maildir/cur/1700000000.M1P2.host,S=2048:2,S", 10);
    ASSERT_TRUE(maildir_size("example.test", "info", 1048576));
    EXPECT_EQ(read_file(maildirsize), "1048576S,0C\n        2048           1\n");
    EXPECT_EQ(file_info(maildirsize).uid, popuser_uid());
    EXPECT_EQ(file_info(maildirsize).gid, popuser_gid());
}

TEST_F(MaildirSizeTest, ZeroQuotaIsWrittenAsOneByte) {
    ASSERT_TRUE(maildir_size("example.test", "info", 0));
    EXPECT_EQ(read_file(maildirsize), "1S,0C\n           0           0\n");
}

TEST_F(MaildirSizeTest, NoLimitIsWrittenAsZero) {
    write_file(mailbox + "/@attachments/big", std::string(5000, 'a'));
    ASSERT_TRUE(maildir_size("example.test", "info", -1));
    EXPECT_EQ(read_file(maildirsize), "0S,0C\n           0           0\n");
}

TEST_F(MaildirSizeTest, AttachmentsAreDeductedFromTheQuota) {
    // Everything under "@attachments" counts, the directories themselves too.
    write_file(mailbox + "/@attachments/one", std::string(3000, 'a'));
    const long long attachments = dir_size((mailbox + "/@attachments").c_str(), SizeUnit::Bytes);
    ASSERT_GT(attachments, 3000);
    ASSERT_TRUE(maildir_size("example.test", "info", 100000));
    EXPECT_EQ(read_file(maildirsize),
              std::to_string(100000 - attachments) + "S,0C\n           0           0\n");
}

TEST_F(MaildirSizeTest, AttachmentsLargerThanTheQuotaWriteOneByteWithAWarning) {
    write_file(mailbox + "/@attachments/big", std::string(5000, 'a'));
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const bool written = maildir_size("example.test", "info", 1000);
    const std::string err = testing::internal::GetCapturedStderr();
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(written);
    EXPECT_EQ(err, "WARNING: @attachments directory is big enough to disable delivery!\n");
    EXPECT_EQ(out, "WARNING: @attachments directory is big enough to disable delivery!\n");
    EXPECT_EQ(read_file(maildirsize), "1S,0C\n           0           0\n");
}

TEST_F(MaildirSizeTest, LinkedAttachmentsAreNotMeasured) {
    const std::string elsewhere = scratch_dir() + "/elsewhere";
    fs::create_directory(elsewhere);
    write_file(elsewhere + "/huge", std::string(50000, 'a'));
    fs::remove_all(mailbox + "/@attachments");
    fs::create_directory_symlink(elsewhere, mailbox + "/@attachments");
    ASSERT_TRUE(maildir_size("example.test", "info", 10000));
    EXPECT_EQ(read_file(maildirsize), "10000S,0C\n           0           0\n");
}

TEST_F(MaildirSizeTest, WorkingDirectoryIsRestored) {
    fs::remove_all(mailbox + "/@attachments");
    ASSERT_EQ(chdir(scratch_dir().c_str()), 0);
    ASSERT_TRUE(maildir_size("example.test", "info", 10));
    EXPECT_EQ(working_directory(), scratch_dir());
    testing::internal::CaptureStderr();
    EXPECT_FALSE(maildir_size("example.test", "nobody", 10));
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(working_directory(), scratch_dir());
    fs::remove_all(mailbox + "/Maildir/cur");
    testing::internal::CaptureStderr();
    EXPECT_FALSE(maildir_size("example.test", "info", 10));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Maildir folder " + mailbox + "/Maildir has no cur directory: No such file or directory\n");
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(working_directory(), scratch_dir());
    EXPECT_TRUE(names_in(mailbox + "/Maildir/tmp").empty());
}

TEST_F(MaildirSizeTest, MissingMailboxCannotBeEntered) {
    testing::internal::CaptureStderr();
    EXPECT_FALSE(maildir_size("example.test", "nobody", 10));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "unable to change to mbox folder /var/qmail/mailnames/example.test/nobody: No such file or "
              "directory\n");
}

TEST_F(MaildirSizeTest, LinkedMailboxIsNotEntered) {
    fs::create_directory_symlink(mailbox, "/var/qmail/mailnames/example.test/linked");
    testing::internal::CaptureStderr();
    EXPECT_FALSE(maildir_size("example.test", "linked", 10));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "unable to change to mbox folder /var/qmail/mailnames/example.test/linked: Not a directory\n");
    EXPECT_FALSE(path_exists(maildirsize));
}

TEST_F(MaildirSizeTest, DomainThatDoesNotConvertIsReported) {
    const std::string domain = std::string(64, 'a') + ".test";
    testing::internal::CaptureStderr();
    EXPECT_FALSE(maildir_size(domain, "info", 10));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "idn_toascii(" + domain + ") failed: Invalid length\n");
}

TEST_F(MaildirSizeTest, OverlongMailboxPathIsRefused) {
    testing::internal::CaptureStderr();
    EXPECT_FALSE(maildir_size("example.test", std::string(4096, 'a'), 10));
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "domain and/or user name too long to be stored on the filesystem\n");
}

TEST_F(MaildirSizeTest, ConfiguredMailNamesRootIsUsed) {
    fs::create_directories("/var/qmail/other");
    write_file("/etc/qvt/qvt.conf", "CRELM_MAILNAMES_D /var/qmail/other\n");
    fs::rename("/var/qmail/mailnames/example.test", "/var/qmail/other/example.test");
    fs::remove_all("/var/qmail/other/example.test/info/@attachments");
    ASSERT_TRUE(maildir_size("example.test", "info", 77));
    EXPECT_EQ(read_file("/var/qmail/other/example.test/info/Maildir/maildirsize"),
              "77S,0C\n           0           0\n");
}

TEST_F(MaildirSizeTest, WorkingDirectoryThatCannotBeHeldIsReported) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer runtime needs descriptors of its own while it checks calls";
#endif
    const auto result = run_in_child([] {
        // No descriptor is left to hold the working directory with.
        closefrom(3);
        const rlimit limit{3, 3};
        setrlimit(RLIMIT_NOFILE, &limit);
        return maildir_size("example.test", "info", 10) ? 0 : errno;
    });
    EXPECT_EQ(result.status, EMFILE);
    EXPECT_EQ(result.err, "unable to get current working directory\n");
}

TEST_F(MaildirSizeTest, AttachmentsThatCannotBeMeasuredAreReported) {
    fs::create_directories(mailbox + "/@attachments/closed");
    chmod((mailbox + "/@attachments/closed").c_str(), 0700);  // closed to everyone but root
    const auto result = run_in_child([] {
        if (setgid(popuser_gid()) != 0 || setuid(popuser_uid()) != 0)
            return 99;
        return maildir_size("example.test", "info", 1000) ? 0 : errno;
    });
    EXPECT_EQ(result.status, EACCES);
    EXPECT_EQ(result.err,
              "Unable to measure size of @attachments/closed\nSystem error 13: Permission denied\n"
              "unable to count attachments folder size\n");
    EXPECT_FALSE(path_exists(maildirsize));
}

class MailboxDiskUsageTest : public MaildirSizeTest {};

TEST_F(MailboxDiskUsageTest, AttachmentsPlusMaildirsizeBytes) {
    write_file(mailbox + "/@attachments/one", std::string(3000, 'a'));
    write_file(maildirsize, "1000S,0C\n        5000           2\n");
    const long long attachments = dir_size((mailbox + "/@attachments").c_str(), SizeUnit::Bytes);
    EXPECT_EQ(mailbox_disk_usage("example.test", "info", SizeUnit::Bytes), attachments + 5000);
}

TEST_F(MailboxDiskUsageTest, InBlocksOnlyAttachmentsAreInBlocks) {
    write_file(mailbox + "/@attachments/one", std::string(3000, 'a'));
    write_file(maildirsize, "1000S,0C\n        5000           2\n");
    const long long blocks = dir_size((mailbox + "/@attachments").c_str(), SizeUnit::Blocks);
    EXPECT_GE(blocks, 3);
    EXPECT_EQ(mailbox_disk_usage("example.test", "INFO", SizeUnit::Blocks), blocks + 5000);
}

TEST_F(MailboxDiskUsageTest, WithoutMaildirsizeTheMaildirIsCounted) {
    fs::remove_all(mailbox + "/@attachments");
    write_message(mailbox + "/Maildir/.Spam/cur/a,S=4321:2,S", 0);
    EXPECT_EQ(mailbox_disk_usage("example.test", "info", SizeUnit::Bytes), 4321);
}

TEST_F(MailboxDiskUsageTest, UncountableMaildirGivesTheAttachmentsAlone) {
    write_file(mailbox + "/@attachments/one", std::string(3000, 'a'));
    const long long attachments = dir_size((mailbox + "/@attachments").c_str(), SizeUnit::Bytes);
    fs::remove_all(mailbox + "/Maildir");
    testing::internal::CaptureStderr();
    EXPECT_EQ(mailbox_disk_usage("example.test", "info", SizeUnit::Bytes), attachments);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Maildir subfolder 'cur' stat failed\nUnable to calculate Maildir++ size: Input/output error\n");
}

TEST_F(MailboxDiskUsageTest, DomainThatDoesNotConvertEndsTheProcess) {
    const auto result = run_in_child([] {
        errno = 0;
        mailbox_disk_usage(std::string(64, 'a') + ".test", "info", SizeUnit::Bytes);
        return 0;
    });
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "idn_toascii() failed: Invalid length\n");
    EXPECT_EQ(result.out, "idn_toascii() failed: Invalid length\n");
}

TEST_F(MailboxDiskUsageTest, OverlongPathEndsTheProcess) {
    const auto result = run_in_child([] {
        errno = 0;
        mailbox_disk_usage("example.test", std::string(4080, 'a'), SizeUnit::Bytes);
        return 0;
    });
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "user mailbox path is too long\nSystem error 36: File name too long\n");
}

}  // namespace
}  // namespace sorvane::test
