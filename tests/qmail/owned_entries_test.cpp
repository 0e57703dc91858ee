// Directories made inside a mail user's tree: what the handle given back
// reaches, when a directory counts as made here, and what the user may have
// planted at the place (a link, a FIFO, a file) is refused without being
// opened or followed.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "qmail/owned_entries.h"
#include "support/sandbox.h"

namespace sorvane::test {
namespace {

using crelm::qmail::make_owned_dir_at;
using crelm::qmail::MailOwnerIds;
using crelm::qmail::OwnedDir;
using crelm::qmail::OwnedFailure;
using crelm::qmail::OwnedStep;
using crelm::util::UniqueFd;

class OwnedEntriesTest : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        root_fd_ = UniqueFd(::open(root_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        ASSERT_TRUE(root_fd_.valid());
    }

    static MailOwnerIds owner() { return MailOwnerIds{popuser_uid(), popuser_gid()}; }

    const std::string root_ = "/var/qmail/mailnames";
    UniqueFd root_fd_;
};

TEST_F(OwnedEntriesTest, ANewDirectoryIsMadeOwnedAndItsHandleReachesIt) {
    OwnedFailure failure;
    OwnedDir made;
    ASSERT_EQ(make_owned_dir_at(root_fd_.get(), "Maildir", owner(), 0700, failure, &made), 0);
    EXPECT_TRUE(made.created);
    ASSERT_TRUE(made.fd.valid());
    struct stat info {};
    ASSERT_EQ(::stat((root_ + "/Maildir").c_str(), &info), 0);
    EXPECT_EQ(info.st_uid, popuser_uid());
    EXPECT_EQ(info.st_gid, popuser_gid());
    EXPECT_EQ(info.st_mode & 07777, 0700u);
    // What is made through the handle lands inside that directory.
    OwnedDir inner;
    ASSERT_EQ(make_owned_dir_at(made.fd.get(), "tmp", owner(), 0700, failure, &inner), 0);
    EXPECT_TRUE(inner.created);
    EXPECT_TRUE(std::filesystem::is_directory(root_ + "/Maildir/tmp"));
}

TEST_F(OwnedEntriesTest, AnExistingDirectoryIsOwnedAgainButNotCountedAsMade) {
    ASSERT_EQ(::mkdir((root_ + "/Maildir").c_str(), 0755), 0);
    OwnedFailure failure;
    OwnedDir made;
    ASSERT_EQ(make_owned_dir_at(root_fd_.get(), "Maildir", owner(), 0700, failure, &made), 0);
    EXPECT_FALSE(made.created);
    struct stat info {};
    ASSERT_EQ(::stat((root_ + "/Maildir").c_str(), &info), 0);
    EXPECT_EQ(info.st_uid, popuser_uid());
    EXPECT_EQ(info.st_mode & 07777, 0700u);
}

TEST_F(OwnedEntriesTest, APlantedLinkIsRefusedAsALoopAndItsTargetIsLeftAlone) {
    const std::string target = root_ + "/target";
    ASSERT_EQ(::mkdir(target.c_str(), 0755), 0);
    ASSERT_EQ(::symlink(target.c_str(), (root_ + "/Maildir").c_str()), 0);
    OwnedFailure failure;
    OwnedDir made;
    EXPECT_EQ(make_owned_dir_at(root_fd_.get(), "Maildir", owner(), 0700, failure, &made), -1);
    EXPECT_EQ(failure.step, OwnedStep::made);
    EXPECT_EQ(failure.error, ELOOP);
    EXPECT_FALSE(made.created);
    struct stat info {};
    ASSERT_EQ(::stat(target.c_str(), &info), 0);
    EXPECT_EQ(info.st_uid, 0u);
    EXPECT_EQ(info.st_mode & 07777, 0755u);
}

// A FIFO at the place would hold an open for reading until a writer came:
// it is refused as no directory, without being opened.
TEST_F(OwnedEntriesTest, APlantedFifoIsRefusedAsNoDirectoryWithoutBlocking) {
    const std::string fifo = root_ + "/Maildir";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0666), 0);
    OwnedFailure failure;
    EXPECT_EQ(make_owned_dir_at(root_fd_.get(), "Maildir", owner(), 0700, failure), -1);
    EXPECT_EQ(failure.step, OwnedStep::made);
    EXPECT_EQ(failure.error, ENOTDIR);
    struct stat info {};
    ASSERT_EQ(::lstat(fifo.c_str(), &info), 0);
    EXPECT_TRUE(S_ISFIFO(info.st_mode));
    EXPECT_EQ(info.st_uid, 0u);
}

TEST_F(OwnedEntriesTest, APlantedFileIsRefusedAsNoDirectoryAndKeepsItsOwner) {
    const std::string file = root_ + "/Maildir";
    { UniqueFd made(::open(file.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644)); }
    OwnedFailure failure;
    EXPECT_EQ(make_owned_dir_at(root_fd_.get(), "Maildir", owner(), 0700, failure), -1);
    EXPECT_EQ(failure.error, ENOTDIR);
    struct stat info {};
    ASSERT_EQ(::lstat(file.c_str(), &info), 0);
    EXPECT_EQ(info.st_uid, 0u);
    EXPECT_EQ(info.st_mode & 07777, 0644u);
}

// Making a whole tree through handles leaves no descriptor open, however
// deep it goes.
TEST_F(OwnedEntriesTest, ATreeMadeThroughHandlesLeavesNoDescriptorOpen) {
    const auto open_descriptors = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                             std::filesystem::directory_iterator());
    };
    const auto before = open_descriptors();
    OwnedFailure failure;
    {
        OwnedDir top;
        ASSERT_EQ(make_owned_dir_at(root_fd_.get(), "a", owner(), 0700, failure, &top), 0);
        ASSERT_EQ(make_owned_dir_at(top.fd.get(), "b", owner(), 0700, failure), 0);
        ASSERT_EQ(make_owned_dir_at(top.fd.get(), "b/c", owner(), 0700, failure), 0);
        ASSERT_EQ(make_owned_dir_at(root_fd_.get(), "a/b/c/d", owner(), 0700, failure), 0);
        ASSERT_EQ(crelm::qmail::make_owned_file_at(top.fd.get(), "b/c/d/f", owner(), 0600, failure), 0);
    }
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_TRUE(std::filesystem::is_regular_file(root_ + "/a/b/c/d/f"));
}

// A handle that is not there fails the make step, as a failed walk does.
TEST_F(OwnedEntriesTest, NoHandleFailsTheMakeStep) {
    OwnedFailure failure;
    EXPECT_EQ(make_owned_dir_at(-1, "Maildir", owner(), 0700, failure), -1);
    EXPECT_EQ(failure.step, OwnedStep::made);
    EXPECT_EQ(failure.error, EBADF);
    EXPECT_FALSE(std::filesystem::exists(root_ + "/Maildir"));
}

}  // namespace
}  // namespace sorvane::test
