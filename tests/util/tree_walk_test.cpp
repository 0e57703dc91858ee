#include "util/tree_walk.h"

#include "util_test_support.h"

#include <sys/mount.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cstdlib>
#include <unistd.h>

namespace sorvane::test {
namespace {

// A mailbox tree as a mail user could leave it: files, folders, a fifo, and
// links planted to a system file and to a directory outside the tree.
class TreeWalkTest : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        top_ = "/var/qmail/mailnames/example.com/info";
        ASSERT_EQ(mkdir("/var/qmail/mailnames/example.com", 0755), 0);
        for (const std::string dir : {"", "/Maildir", "/Maildir/cur", "/Maildir/.Sent", "/Maildir/.Sent/new"})
            ASSERT_EQ(mkdir((top_ + dir).c_str(), 0755), 0) << dir;
        for (const std::string file : {"/.qmail", "/Maildir/cur/1.mail", "/Maildir/.Sent/new/2.mail"})
            write_file(top_ + file, "x", 0644);
        ASSERT_EQ(mkfifo((top_ + "/Maildir/pipe").c_str(), 0644), 0);
        ASSERT_EQ(mkdir("/tmp/outside", 0755), 0);
        write_file("/tmp/outside/secret", "s", 0600);
        ASSERT_EQ(symlink("/etc/passwd", (top_ + "/Maildir/cur/passwd").c_str()), 0);
        ASSERT_EQ(symlink("/tmp/outside", (top_ + "/Maildir/.Trash").c_str()), 0);
        passwd_before_ = file_info("/etc/passwd");
        passwd_text_ = read_file("/etc/passwd");
    }

    // The link targets and everything behind them are as they were.
    void expect_link_targets_untouched() {
        const auto passwd = file_info("/etc/passwd");
        EXPECT_EQ(passwd.uid, passwd_before_.uid);
        EXPECT_EQ(passwd.gid, passwd_before_.gid);
        EXPECT_EQ(passwd.mode, passwd_before_.mode);
        EXPECT_EQ(read_file("/etc/passwd"), passwd_text_);
        EXPECT_EQ(file_info("/tmp/outside").uid, 0U);
        EXPECT_EQ(file_info("/tmp/outside").mode, 0755U);
        EXPECT_EQ(file_info("/tmp/outside/secret").uid, 0U);
        EXPECT_EQ(file_info("/tmp/outside/secret").mode, 0600U);
        EXPECT_EQ(read_file("/tmp/outside/secret"), "s");
    }

    std::string top_;
    FileInfo passwd_before_{};
    std::string passwd_text_;
};

const std::vector<std::string> kChanged = {"/.qmail",
                                           "/Maildir",
                                           "/Maildir/cur",
                                           "/Maildir/cur/1.mail",
                                           "/Maildir/.Sent",
                                           "/Maildir/.Sent/new",
                                           "/Maildir/.Sent/new/2.mail"};

TEST_F(TreeWalkTest, ChownTreeChangesFilesAndDirectoriesBelowTheTop) {
    chown_tree(top_, popuser_uid(), popuser_gid(), TopDirectory::leave);
    for (const std::string& entry : kChanged) {
        EXPECT_EQ(file_info(top_ + entry).uid, popuser_uid()) << entry;
        EXPECT_EQ(file_info(top_ + entry).gid, popuser_gid()) << entry;
    }
    EXPECT_EQ(file_info(top_).uid, 0U);
    EXPECT_EQ(file_info(top_ + "/Maildir/pipe").uid, 0U) << "other types are left alone";
    expect_link_targets_untouched();
}

// A mail user's hard link to a file of root's: the file keeps its owner and
// mode, the rest of the tree is changed.
TEST_F(TreeWalkTest, AHardLinkedFileKeepsItsOwnerAndModeAndTheWalkGoesOn) {
    write_file("/var/qmail/secret", "root's\n", 0600);
    ASSERT_EQ(link("/var/qmail/secret", (top_ + "/Maildir/cur/secret").c_str()), 0);
    const auto printed = printed_by([&] {
        chown_chmod_tree(top_, popuser_uid(), popuser_gid(), 0644, 0700, TopDirectory::change);
    });
    expect_reported(printed, "Refused to change directory entry secret: it has more than one hard link\n"
                             "Refused to change directory entry secret: it has more than one hard link\n");
    for (const std::string& entry : kChanged)
        EXPECT_EQ(file_info(top_ + entry).uid, popuser_uid()) << entry;
    EXPECT_EQ(read_file("/var/qmail/secret"), "root's\n");
    EXPECT_EQ(file_info("/var/qmail/secret").uid, 0U);
    EXPECT_EQ(file_info("/var/qmail/secret").mode, 0600U);
    expect_link_targets_untouched();
}

// A mail user's name for a file reaches the message escaped: its newline
// starts no line of its own in what the panel reads, its escape byte
// drives no terminal.
TEST_F(TreeWalkTest, ANameFromTheTreeIsShownEscaped) {
    write_file("/var/qmail/secret", "root's\n", 0600);
    ASSERT_EQ(link("/var/qmail/secret", (top_ + "/Maildir/cur/se\nOK\x1b[2J").c_str()), 0);
    const auto printed = printed_by([&] { chown_tree(top_, popuser_uid(), popuser_gid(), TopDirectory::change); });
    expect_reported(printed, "Refused to change directory entry se\\nOK\\x1b[2J: it has more than one hard link\n");
    EXPECT_EQ(file_info("/var/qmail/secret").uid, 0U);
}

TEST_F(TreeWalkTest, ChownTreeChangesTheTopWhenAsked) {
    chown_tree(top_, popuser_uid(), popuser_gid(), TopDirectory::change);
    EXPECT_EQ(file_info(top_).uid, popuser_uid());
    expect_link_targets_untouched();
}

TEST_F(TreeWalkTest, ChmodTreeGivesFilesAndDirectoriesTheirModes) {
    chmod_tree(top_, 0600, 0700, TopDirectory::leave);
    for (const std::string& entry : kChanged)
        EXPECT_EQ(file_info(top_ + entry).mode, file_info(top_ + entry).type == 'd' ? 0700U : 0600U) << entry;
    EXPECT_EQ(file_info(top_).mode, 0755U);
    EXPECT_EQ(file_info(top_ + "/Maildir/pipe").mode, 0644U);
    expect_link_targets_untouched();
}

TEST_F(TreeWalkTest, ChownChmodTreeDoesBothAndAnswersZero) {
    EXPECT_EQ(chown_chmod_tree(top_, popuser_uid(), popuser_gid(), 0600, 0700,
                               TopDirectory::change),
              0);
    EXPECT_EQ(file_info(top_).mode, 0700U);
    EXPECT_EQ(file_info(top_).uid, popuser_uid());
    EXPECT_EQ(file_info(top_ + "/Maildir/cur/1.mail").mode, 0600U);
    EXPECT_EQ(file_info(top_ + "/Maildir/cur/1.mail").uid, popuser_uid());
    expect_link_targets_untouched();
}

TEST_F(TreeWalkTest, ARegularFileAsTopIsChangedDirectly) {
    chown_chmod_tree(top_ + "/.qmail", popuser_uid(), 0, 0600, 0700, TopDirectory::leave);
    EXPECT_EQ(file_info(top_ + "/.qmail").uid, popuser_uid());
    EXPECT_EQ(file_info(top_ + "/.qmail").mode, 0600U);
}

TEST_F(TreeWalkTest, ALinkAsTopIsSkipped) {
    chown_chmod_tree(top_ + "/Maildir/.Trash", popuser_uid(), 0, 0666, 0777, TopDirectory::change);
    chown_chmod_tree(top_ + "/Maildir/cur/passwd", popuser_uid(), 0, 0666, 0777, TopDirectory::change);
    expect_link_targets_untouched();
}

TEST_F(TreeWalkTest, TheWorkingDirectoryIsTheSameAfterAWalk) {
    ASSERT_EQ(chdir("/var/qmail"), 0);
    chmod_tree(top_, 0600, 0700, TopDirectory::change);
    char here[4096];
    ASSERT_NE(getcwd(here, sizeof here), nullptr);
    EXPECT_EQ(std::string(here), "/var/qmail");
}

TEST_F(TreeWalkTest, AMissingTopIsOnlyReported) {
    const std::string missing = top_ + "/none";
    const auto printed = printed_by([&] { chown_tree(missing, 0, 0, TopDirectory::change); });
    expect_reported(printed, with_system_error(
                                 "Directory entry " + missing + " doesn't exist: No such file or directory\n", ENOENT));
}

TEST_F(TreeWalkTest, ATopThatCannotBeExaminedEndsTheProgram) {
    const std::string below_file = top_ + "/.qmail/x";
    EXPECT_EXIT(chown_tree(below_file, 0, 0, TopDirectory::change), ::testing::ExitedWithCode(1),
                "^Unable to get entry " + below_file + ": Not a directory\n\nSystem error 20: Not a directory\n$");
    EXPECT_EXIT(chmod_tree(below_file, 0600, 0700, TopDirectory::change), ::testing::ExitedWithCode(1),
                "^Unable to get entry " + below_file + ": Not a directory\n\nSystem error 20: Not a directory\n$");
}

TEST_F(TreeWalkTest, RemoveTreeRemovesEverythingAndLinksOnlyAsLinks) {
    EXPECT_EQ(remove_tree(top_), 0);
    EXPECT_FALSE(path_exists(top_));
    EXPECT_EQ(list_tree("/var/qmail/mailnames/example.com"), std::vector<std::string>{});
    expect_link_targets_untouched();
    EXPECT_TRUE(path_exists("/tmp/outside/secret"));
}

TEST_F(TreeWalkTest, RemoveTreeOfAMissingPathSucceeds) {
    const auto printed = printed_by([&] { EXPECT_EQ(remove_tree(top_ + "/none"), 0); });
    EXPECT_EQ(printed.out, "");
}

TEST_F(TreeWalkTest, RemoveTreeUnlinksAFileOrALinkGivenAsTop) {
    EXPECT_EQ(remove_tree(top_ + "/.qmail"), 0);
    EXPECT_FALSE(path_exists(top_ + "/.qmail"));
    EXPECT_EQ(remove_tree(top_ + "/Maildir/.Trash"), 0);
    EXPECT_FALSE(path_exists(top_ + "/Maildir/.Trash"));
    expect_link_targets_untouched();
}

TEST_F(TreeWalkTest, RemoveTreeReportsAnEntryItCannotExamine) {
    const std::string below_file = top_ + "/.qmail/x";
    const auto printed = printed_by([&] { EXPECT_EQ(remove_tree(below_file), 1); });
    expect_reported(printed, with_system_error("Unable to get entry " + below_file + ": Not a directory\n", ENOTDIR));
}

TEST_F(TreeWalkTest, RemoveTreeReportsADirectoryItCannotRemoveAndCarriesOnNoFurther) {
    const std::string mount_point = top_ + "/Maildir/.Sent/busy";
    ASSERT_EQ(mkdir(mount_point.c_str(), 0755), 0);
    ASSERT_EQ(mount("busy", mount_point.c_str(), "tmpfs", 0, nullptr), 0);
    const auto printed = printed_by([&] { EXPECT_EQ(remove_tree(top_), 1); });
    expect_reported(printed, with_system_error("Unable to remove dir busy: Device or resource busy\n", EBUSY));
    EXPECT_TRUE(path_exists(mount_point));
    umount2(mount_point.c_str(), MNT_DETACH);
}

}  // namespace

namespace {

// A tree with one file only, so that the order of entries does not matter
// to which step runs out of descriptors.
class TreeWalkOutOfDescriptorsTest : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        top_ = "/var/qmail/mailnames/one";
        ASSERT_EQ(mkdir(top_.c_str(), 0755), 0);
        write_file(top_ + "/only", "x");
    }
    std::string top_;
};

void chown_short_of_descriptors(const std::string& top, int spare) {
    NoFreeDescriptors guard(spare);
    NoFreeDescriptors::restore_at_exit();
    chown_tree(top, 0, 0, TopDirectory::change);
}

// A chain of directories depth deep below top, with a file at its bottom;
// the path of the bottom directory, relative to top.
std::string make_chain(const std::string& top, int depth) {
    std::string relative;
    int dir = open(top.c_str(), O_RDONLY | O_DIRECTORY);
    for (int level = 0; level < depth; ++level) {
        EXPECT_EQ(mkdirat(dir, "d", 0755), 0);
        const int below = openat(dir, "d", O_RDONLY | O_DIRECTORY);
        close(dir);
        dir = below;
        relative += level == 0 ? "d" : "/d";
    }
    const int file = openat(dir, "bottom", O_WRONLY | O_CREAT, 0644);
    EXPECT_GE(file, 0);
    close(file);
    close(dir);
    return relative;
}

constexpr int kDeepChain = 400;

// Reaching the top holds one descriptor (two for a moment); the directory
// worked on one more, the first four levels above it one each, and
// entering a directory below it (or opening a file in it, or climbing back
// to a deeper parent) one more for a moment: seven in all, at any depth. A
// directory is listed through its own descriptor.
TEST_F(TreeWalkOutOfDescriptorsTest, ReachingTheTopFailsFatally) {
    EXPECT_EXIT(chown_short_of_descriptors(top_, 0), ::testing::ExitedWithCode(1),
                "^Unable to get entry " + top_ + ": Too many open files\n\nSystem error 24: Too many open files\n$");
}

TEST_F(TreeWalkOutOfDescriptorsTest, OpeningADirectoryBelowFailsFatally) {
    ASSERT_EQ(mkdir((top_ + "/below").c_str(), 0755), 0);
    EXPECT_EXIT(chown_short_of_descriptors(top_, 2), ::testing::ExitedWithCode(1),
                "^Unable to open dir below: Too many open files\n\nSystem error 24: Too many open files\n$");
}

// Changes the chain below top with seven spare descriptors, then ends the
// process: 0 when the file at its bottom got popuser and mode 0640.
void change_chain_with_seven_descriptors(const std::string& top) {
    NoFreeDescriptors guard(7);
    NoFreeDescriptors::restore_at_exit();
    chown_tree(top, popuser_uid(), popuser_gid(), TopDirectory::change);
    chmod_tree(top, 0640, 0750, TopDirectory::change);
    int dir = open(top.c_str(), O_RDONLY | O_DIRECTORY);
    for (int level = 0; level < kDeepChain; ++level) {
        const int below = openat(dir, "d", O_RDONLY | O_DIRECTORY);
        close(dir);
        dir = below;
    }
    struct stat info {};
    const bool changed = fstatat(dir, "bottom", &info, AT_SYMLINK_NOFOLLOW) == 0 && info.st_uid == popuser_uid() &&
                         (info.st_mode & 07777) == 0640;
    std::exit(changed ? 0 : 2);
}

TEST_F(TreeWalkOutOfDescriptorsTest, ChangingAChainOfAnyDepthNeedsSevenDescriptors) {
    make_chain(top_, kDeepChain);
    EXPECT_EXIT(change_chain_with_seven_descriptors(top_), ::testing::ExitedWithCode(0), "^$");
}

TEST_F(TreeWalkOutOfDescriptorsTest, RemovingAChainOfAnyDepthNeedsSevenDescriptors) {
    make_chain(top_, kDeepChain);
    int result = -1;
    const auto printed = printed_by([&] {
        NoFreeDescriptors guard(7);
        result = remove_tree(top_);
    });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(printed.out, "");
    EXPECT_EQ(printed.err, "");
    EXPECT_FALSE(path_exists(top_));
}

TEST_F(TreeWalkOutOfDescriptorsTest, RemoveTreeReportsAndGivesOne) {
    int result = -1;
    const auto printed = printed_by([&] {
        NoFreeDescriptors guard;
        result = remove_tree(top_);
    });
    EXPECT_EQ(result, 1);
    expect_reported(printed, with_system_error("Unable to get entry " + top_ + ": Too many open files\n", EMFILE));
    EXPECT_TRUE(path_exists(top_ + "/only"));
}

TEST_F(TreeWalkOutOfDescriptorsTest, RemoveTreeReportsAnEntryItCannotUnlink) {
    write_file("/tmp/pinned", "p");
    ASSERT_EQ(mount("/tmp/pinned", (top_ + "/only").c_str(), nullptr, MS_BIND, nullptr), 0);
    const auto inside = printed_by([&] { EXPECT_EQ(remove_tree(top_), 1); });
    expect_reported(inside,
                    with_system_error("Unable to unlink directory entry only: Device or resource busy\n", EBUSY));
    const auto as_top = printed_by([&] { EXPECT_EQ(remove_tree(top_ + "/only"), 1); });
    expect_reported(as_top,
                    with_system_error("Unable to unlink entry " + top_ + "/only: Device or resource busy\n", EBUSY));
    umount2((top_ + "/only").c_str(), MNT_DETACH);
}

}  // namespace

}  // namespace sorvane::test
