// Counting a Maildir++ mailbox and the modification times of its folders.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "mailbox/maildir_count.h"
#include "mailbox/maildir_mtime.h"
#include "mailbox/mailbox_test_support.h"

namespace fs = std::filesystem;

namespace sorvane::test {
namespace {

class MaildirCountTest : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        maildir = scratch_dir() + "/Maildir";
        make_maildir(maildir, {".Spam", ".Sent"});
    }

    // Counts and expects success.
    std::pair<long long, long long> count() {
        long long bytes = -1;
        long long messages = -1;
        timespec latest{};
        EXPECT_TRUE(maildir_count(maildir, bytes, messages, latest));
        return {bytes, messages};
    }

    std::string maildir;
};

TEST_F(MaildirCountTest, EmptyMaildirIsZero) { EXPECT_EQ(count(), std::make_pair(0LL, 0LL)); }

TEST_F(MaildirCountTest, SizeInTheNameCountsWhateverTheRealSize) {
    write_message(maildir + "/cur/1700000000.M1P2.host,S=2048:2,S", 10);
    EXPECT_EQ(count(), std::make_pair(2048LL, 1LL));
}

TEST_F(MaildirCountTest, NameWithoutSizeCountsItsFileSize) {
    write_message(maildir + "/new/1700000000.M1P2.host", 777);
    write_message(maildir + "/cur/1700000001.M1P2.host:2,S", 33);
    EXPECT_EQ(count(), std::make_pair(810LL, 2LL));
}

TEST_F(MaildirCountTest, SizeInTheNameIsReadAsTheDeliveryAgentReadsIt) {
    write_message(maildir + "/cur/a,S=12,W=20:2,S", 33);  // 12
    write_message(maildir + "/cur/b,S=7x:2,S", 33);       // 7
    write_message(maildir + "/cur/c,S=abc:2,S", 33);      // 0
    write_message(maildir + "/cur/d,S=1,S=100:2,S", 33);  // 100
    write_message(maildir + "/cur/e:2,S,S=1000", 33);     // none before the ":": 33
    EXPECT_EQ(count(), std::make_pair(152LL, 5LL));
}

TEST_F(MaildirCountTest, TrashedMessagesAndDotNamesAreLeftOut) {
    write_message(maildir + "/cur/a,S=1:2,ST", 0);
    write_message(maildir + "/new/b:2,T", 50);
    write_message(maildir + "/.Spam/cur/c,S=100:2,T", 0);
    write_message(maildir + "/cur/.d,S=1000", 0);
    write_message(maildir + "/cur/e,S=10000:2,S", 0);
    EXPECT_EQ(count(), std::make_pair(10000LL, 1LL));
}

TEST_F(MaildirCountTest, TotalsWrapAroundAsTheAgentsDo) {
    write_message(maildir + "/cur/a,S=9223372036854775807:2,S", 0);
    write_message(maildir + "/cur/b,S=2:2,S", 0);
    EXPECT_EQ(count(), std::make_pair(-9223372036854775807LL, 2LL));
}

TEST_F(MaildirCountTest, CurAndNewOfMaildirAndMarkedSubfoldersAreCounted) {
    write_message(maildir + "/cur/a,S=1:2,", 0);
    write_message(maildir + "/new/b,S=10", 0);
    write_message(maildir + "/.Spam/cur/c,S=100:2,S", 0);
    write_message(maildir + "/.Sent/new/d,S=1000", 0);
    write_message(maildir + "/tmp/e,S=10000", 0);
    EXPECT_EQ(count(), std::make_pair(1111LL, 4LL));
}

TEST_F(MaildirCountTest, SubfolderCountsWithOrWithoutMarkerButTrashAndNamesWithoutDotDoNot) {
    make_maildir(maildir + "/.Unmarked");
    fs::remove(maildir + "/.Unmarked/maildirfolder");
    write_message(maildir + "/.Unmarked/cur/a,S=500:2,", 0);
    fs::create_directories(maildir + "/NoDot/cur");
    write_file(maildir + "/NoDot/maildirfolder", "");
    write_message(maildir + "/NoDot/cur/b,S=600:2,", 0);
    make_maildir(maildir + "/.Trash");
    write_message(maildir + "/.Trash/cur/c,S=700:2,", 0);
    make_maildir(maildir + "/.Trash.Old");
    write_message(maildir + "/.Trash.Old/cur/d,S=800:2,", 0);
    write_file(maildir + "/.file", "");
    EXPECT_EQ(count(), std::make_pair(1300LL, 2LL));
}

TEST_F(MaildirCountTest, LinkedMessageCountsAsTheLinkItself) {
    write_message(scratch_dir() + "/outside", 100000);
    const std::string target = scratch_dir() + "/outside";
    fs::create_symlink(target, maildir + "/cur/linked");
    EXPECT_EQ(count(), std::make_pair(static_cast<long long>(target.size()), 1LL));
}

TEST_F(MaildirCountTest, LinkedCurOrSubfolderIsNotFollowed) {
    const std::string elsewhere = scratch_dir() + "/elsewhere";
    make_maildir(elsewhere);
    write_file(elsewhere + "/maildirfolder", "");
    write_message(elsewhere + "/cur/a,S=5000:2,", 0);
    fs::remove_all(maildir + "/.Sent/cur");
    fs::create_directory_symlink(elsewhere + "/cur", maildir + "/.Sent/cur");
    fs::create_directory_symlink(elsewhere, maildir + "/.Linked");
    EXPECT_EQ(count(), std::make_pair(0LL, 0LL));
}

TEST_F(MaildirCountTest, MissingCurFails) {
    fs::remove_all(maildir + "/cur");
    testing::internal::CaptureStderr();
    long long bytes = 0, messages = 0;
    timespec latest{};
    EXPECT_FALSE(maildir_count(maildir, bytes, messages, latest));
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Maildir subfolder 'cur' stat failed\n");
}

TEST_F(MaildirCountTest, SubfolderWithoutNewOrCurCountsWhatItHas) {
    fs::remove_all(maildir + "/.Spam/new");
    write_message(maildir + "/.Spam/cur/a,S=5:2,", 0);
    fs::remove_all(maildir + "/.Sent/cur");
    write_file(maildir + "/.Sent/cur", "");
    write_message(maildir + "/.Sent/new/b,S=6", 0);
    EXPECT_EQ(count(), std::make_pair(11LL, 2LL));
}

TEST_F(MaildirCountTest, MissingNewOfTheMaildirFails) {
    fs::remove_all(maildir + "/new");
    const auto result = run_in_child([&] {
        long long bytes = 0, messages = 0;
        timespec latest{};
        return maildir_count(maildir, bytes, messages, latest) ? 0 : errno;
    });
    EXPECT_EQ(result.status, EIO);
    EXPECT_EQ(result.err, "Maildir subfolder 'new' stat failed\n");
    EXPECT_EQ(result.out, "Maildir subfolder 'new' stat failed\n");
}

TEST_F(MaildirCountTest, MissingMaildirFails) {
    const auto result = run_in_child([&] {
        long long bytes = 0, messages = 0;
        timespec latest{};
        return maildir_count(scratch_dir() + "/none", bytes, messages, latest) ? 0 : errno;
    });
    EXPECT_EQ(result.status, EIO);
    EXPECT_EQ(result.err, "Maildir subfolder 'cur' stat failed\n");
}

// A path that still opens but whose folder paths reach 4096 bytes.
std::string padded_path(const std::string& path, std::size_t length) {
    std::string padding;
    while (padding.size() + path.size() + 2 <= length)
        padding += "./";
    return padding + path;
}

TEST_F(MaildirCountTest, FolderPathReachingTheBufferSizeFails) {
    ASSERT_EQ(chdir(scratch_dir().c_str()), 0);
    const std::string long_maildir = padded_path("Maildir", 4095);
    ASSERT_GE(long_maildir.size() + 4, 4096u);
    const auto result = run_in_child([&] {
        long long bytes = 0, messages = 0;
        timespec latest{};
        return maildir_count(long_maildir, bytes, messages, latest) ? 0 : errno;
    });
    EXPECT_EQ(result.status, ENAMETOOLONG);
    EXPECT_EQ(result.err, "Maildir subfolder 'cur' name too long to fit the allowed buffer\n");
}

TEST_F(MaildirCountTest, SubfolderPathReachingTheBufferSizeFails) {
    ASSERT_EQ(chdir(scratch_dir().c_str()), 0);
    const std::string long_maildir = padded_path("Maildir", 4090);
    ASSERT_LT(long_maildir.size() + 4, 4096u);
    ASSERT_GE(long_maildir.size() + 10, 4096u);
    const auto result = run_in_child([&] {
        long long bytes = 0, messages = 0;
        timespec latest{};
        return maildir_count(long_maildir, bytes, messages, latest) ? 0 : errno;
    });
    EXPECT_EQ(result.status, ENAMETOOLONG);
    EXPECT_EQ(result.err, "Maildir subfolder 'cur' name too long to fit the allowed buffer\n");
}

TEST_F(MaildirCountTest, SubfolderThatCannotBeOpenedIsSkipped) {
    write_message(maildir + "/.Spam/cur/a,S=5:2,", 0);
    write_message(maildir + "/cur/b,S=7:2,", 0);
    chmod(maildir.c_str(), 0755);
    chmod((maildir + "/cur").c_str(), 0755);
    chmod((maildir + "/new").c_str(), 0755);
    chmod((maildir + "/.Spam").c_str(), 0700);  // closed to everyone but root
    const auto result = run_in_child([&] {
        if (setgid(popuser_gid()) != 0 || setuid(popuser_uid()) != 0)
            return 99;
        long long bytes = 0, messages = 0;
        timespec latest{};
        if (!maildir_count(maildir, bytes, messages, latest))
            return 98;
        return bytes == 7 && messages == 1 ? 0 : 97;
    });
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
}

TEST_F(MaildirCountTest, LatestMtimeIsTheLaterOfCurAndNew) {
    const timespec older[2] = {{0, UTIME_OMIT}, {1000, 0}};
    const timespec newer[2] = {{0, UTIME_OMIT}, {2000, 500}};
    ASSERT_EQ(utimensat(AT_FDCWD, (maildir + "/cur").c_str(), newer, 0), 0);
    ASSERT_EQ(utimensat(AT_FDCWD, (maildir + "/new").c_str(), older, 0), 0);
    timespec time{};
    ASSERT_TRUE(maildir_latest_mtime(maildir, time));
    EXPECT_EQ(time.tv_sec, 2000);
    EXPECT_EQ(time.tv_nsec, 500);
    ASSERT_EQ(utimensat(AT_FDCWD, (maildir + "/new").c_str(), newer, 0), 0);
    ASSERT_EQ(utimensat(AT_FDCWD, (maildir + "/cur").c_str(), older, 0), 0);
    ASSERT_TRUE(maildir_latest_mtime(maildir, time));
    EXPECT_EQ(time.tv_sec, 2000);
}

TEST_F(MaildirCountTest, LatestMtimeFailsWithoutNew) {
    fs::remove_all(maildir + "/new");
    timespec time{};
    errno = 0;
    EXPECT_FALSE(maildir_latest_mtime(maildir, time));
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(MaildirCountTest, TreeLatestMtimeOfAVanishedMaildirIsReported) {
    fs::remove_all(maildir);
    timespec time{};
    testing::internal::CaptureStderr();
    EXPECT_FALSE(crelm::mailbox::maildir_tree_latest_mtime(maildir, time));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Unable to open Maildir folder. Has it just been removed?\n");
}

TEST_F(MaildirCountTest, TreeLatestMtimeCoversEverySubfolder) {
    const timespec old_times[2] = {{0, UTIME_OMIT}, {1000, 0}};
    const timespec latest[2] = {{0, UTIME_OMIT}, {5000, 0}};
    for (const char* folder : {"/cur", "/new", "/.Spam/cur", "/.Spam/new", "/.Sent/cur", "/.Sent/new"})
        ASSERT_EQ(utimensat(AT_FDCWD, (maildir + folder).c_str(), old_times, 0), 0);
    ASSERT_EQ(utimensat(AT_FDCWD, (maildir + "/.Sent/new").c_str(), latest, 0), 0);
    timespec time{};
    ASSERT_TRUE(crelm::mailbox::maildir_tree_latest_mtime(maildir, time));
    EXPECT_EQ(time.tv_sec, 5000);
}

}  // namespace
}  // namespace sorvane::test
