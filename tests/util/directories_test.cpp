#include "util/directories.h"

#include "util_test_support.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace sorvane::test {
namespace {

class DirectoriesTest : public ScratchDirTest {};

TEST_F(DirectoriesTest, MakeDirOwnedCreatesWithOwnerAndMode) {
    EXPECT_EQ(make_dir_owned(dir_ + "/home", popuser_uid(), popuser_gid(), 0700), 0);
    const auto info = file_info(dir_ + "/home");
    EXPECT_EQ(info.type, 'd');
    EXPECT_EQ(info.uid, popuser_uid());
    EXPECT_EQ(info.gid, popuser_gid());
    EXPECT_EQ(info.mode, 0700U);
}

TEST_F(DirectoriesTest, MakeDirOwnedAcceptsAnExistingDirectoryAndResetsIt) {
    ASSERT_EQ(mkdir((dir_ + "/home").c_str(), 0755), 0);
    write_file(dir_ + "/home/kept", "x");
    EXPECT_EQ(make_dir_owned(dir_ + "/home", popuser_uid(), popuser_gid(), 0700), 0);
    EXPECT_EQ(file_info(dir_ + "/home").mode, 0700U);
    EXPECT_EQ(file_info(dir_ + "/home").uid, popuser_uid());
    EXPECT_EQ(read_file(dir_ + "/home/kept"), "x");
}

TEST_F(DirectoriesTest, MakeDirOwnedRefusesAnExistingFile) {
    write_file(dir_ + "/file", "x");
    const auto printed = printed_by([&] { EXPECT_EQ(make_dir_owned(dir_ + "/file", 0, 0, 0700), -1); });
    expect_reported(printed, with_system_error("ERROR: Unable to mkdir " + dir_ + "/file: File exists\n", EEXIST));
}

TEST_F(DirectoriesTest, MakeDirOwnedWithAMissingParentFails) {
    const auto printed = printed_by([&] { EXPECT_EQ(make_dir_owned(dir_ + "/no/home", 0, 0, 0700), -1); });
    expect_reported(
        printed, with_system_error("ERROR: Unable to mkdir " + dir_ + "/no/home: No such file or directory\n", ENOENT));
}

TEST_F(DirectoriesTest, MakeDirOwnedNeverChangesTheTargetOfALink) {
    ASSERT_EQ(mkdir("/tmp/outside", 0755), 0);
    ASSERT_EQ(symlink("/tmp/outside", (dir_ + "/Maildir").c_str()), 0);
    const auto printed = printed_by([&] {
        EXPECT_EQ(make_dir_owned(dir_ + "/Maildir", popuser_uid(), popuser_gid(), 0700), -1);
    });
    expect_reported(
        printed,
        with_system_error("ERROR: Unable to chown " + dir_ + "/Maildir: Too many levels of symbolic links\n", ELOOP));
    EXPECT_EQ(file_info("/tmp/outside").uid, 0U);
    EXPECT_EQ(file_info("/tmp/outside").mode, 0755U);
}

TEST_F(DirectoriesTest, MkdirPOwnedCreatesParentsWithoutUmaskAndOwnsOnlyWhatItMade) {
    ASSERT_EQ(mkdir((dir_ + "/a").c_str(), 0755), 0);
    umask(077);
    EXPECT_EQ(mkdir_p_owned(dir_ + "/a/b/c", popuser_uid(), popuser_gid(), 0750), 0);
    EXPECT_EQ(file_info(dir_ + "/a").uid, 0U);
    EXPECT_EQ(file_info(dir_ + "/a").mode, 0755U);
    for (const std::string made : {"/a/b", "/a/b/c"}) {
        EXPECT_EQ(file_info(dir_ + made).uid, popuser_uid()) << made;
        EXPECT_EQ(file_info(dir_ + made).gid, popuser_gid()) << made;
        EXPECT_EQ(file_info(dir_ + made).mode, 0750U) << made;
    }
    mode_t now = umask(0);
    EXPECT_EQ(now, 077U) << "the umask is restored";
}

TEST_F(DirectoriesTest, MkdirPOwnedUsesOnlyThePermissionBits) {
    EXPECT_EQ(mkdir_p_owned(dir_ + "/s", 0, 0, 04750), 0);
    EXPECT_EQ(file_info(dir_ + "/s").mode, 0750U);
}

TEST_F(DirectoriesTest, MkdirPOwnedAcceptsAnExistingTree) {
    ASSERT_EQ(mkdir((dir_ + "/a").c_str(), 0700), 0);
    EXPECT_EQ(mkdir_p_owned(dir_ + "/a", popuser_uid(), 0, 0755), 0);
    EXPECT_EQ(file_info(dir_ + "/a").uid, 0U);
    EXPECT_EQ(file_info(dir_ + "/a").mode, 0700U);
}

TEST_F(DirectoriesTest, MkdirPOwnedThroughAFileEndsTheProgram) {
    write_file(dir_ + "/file", "x");
    EXPECT_EXIT(mkdir_p_owned(dir_ + "/file/sub", 0, 0, 0755), ::testing::ExitedWithCode(1),
                "^Cannot create directory " + dir_ + "/file/sub: Not a directory\nSystem error 20: Not a directory\n$");
    EXPECT_EXIT(mkdir_p_owned(dir_ + "/file", 0, 0, 0755), ::testing::ExitedWithCode(1),
                "^Cannot create directory " + dir_ + "/file: File exists\nSystem error 17: File exists\n$");
}

TEST_F(DirectoriesTest, RenameDirOfAMissingDirectoryDoesNothing) {
    const auto printed = printed_by([&] { EXPECT_EQ(rename_dir(dir_ + "/old", dir_ + "/new"), 0); });
    EXPECT_EQ(printed.out, "");
    EXPECT_FALSE(path_exists(dir_ + "/new"));
}

TEST_F(DirectoriesTest, RenameDirMovesTheTree) {
    ASSERT_EQ(mkdir((dir_ + "/old").c_str(), 0700), 0);
    write_file(dir_ + "/old/.qmail", "| true\n");
    EXPECT_EQ(rename_dir(dir_ + "/old", dir_ + "/new"), 0);
    EXPECT_EQ(list_tree(dir_), (std::vector<std::string>{"new/", "new/.qmail"}));
}

TEST_F(DirectoriesTest, RenameDirOntoAnExistingDirectoryFailsWithoutTouchingEither) {
    ASSERT_EQ(mkdir((dir_ + "/old").c_str(), 0700), 0);
    write_file(dir_ + "/old/a", "a");
    ASSERT_EQ(mkdir((dir_ + "/new").c_str(), 0700), 0);
    const auto printed = printed_by([&] { EXPECT_EQ(rename_dir(dir_ + "/old", dir_ + "/new"), -1); });
    expect_reported(printed, "Directory rename error: target directory " + dir_ + "/new already exists.\n");
    EXPECT_EQ(list_tree(dir_), (std::vector<std::string>{"new/", "old/", "old/a"}));
}

TEST_F(DirectoriesTest, RenameDirFailureIsReportedWithItsSpelling) {
    ASSERT_EQ(mkdir((dir_ + "/old").c_str(), 0700), 0);
    const auto printed = printed_by([&] { EXPECT_EQ(rename_dir(dir_ + "/old", dir_ + "/no/new"), -1); });
    expect_reported(printed, with_system_error("Remaming " + dir_ + "/old to " + dir_ +
                                                   "/no/new failed: No such file or directory\n",
                                               ENOENT));
    EXPECT_TRUE(path_exists(dir_ + "/old"));
}

TEST_F(DirectoriesTest, MakePathCreatesEveryComponentAndAnswersOne) {
    EXPECT_EQ(make_path(dir_ + "/x/y/z"), 1);
    EXPECT_EQ(file_info(dir_ + "/x/y/z").type, 'd');
    EXPECT_EQ(file_info(dir_ + "/x").mode, 0755U);
    EXPECT_EQ(make_path(dir_ + "/x/y/z"), 1);
}

TEST_F(DirectoriesTest, MakePathThroughAFileAnswersZeroWithEnotdir) {
    write_file(dir_ + "/file", "x");
    errno = 0;
    const auto printed = printed_by([&] { EXPECT_EQ(make_path(dir_ + "/file/sub"), 0); });
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_EQ(printed.out, "");
    errno = 0;
    EXPECT_EQ(make_path(dir_ + "/file"), 0);
    EXPECT_EQ(errno, ENOTDIR);
}

}  // namespace

}  // namespace sorvane::test
