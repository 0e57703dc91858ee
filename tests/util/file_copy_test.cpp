#include "util/file_copy.h"

#include "runtime/md5_hex.h"
#include "util_test_support.h"

#include <sys/stat.h>
#include <unistd.h>

namespace sorvane::test {
namespace {

class FileCopyTest : public ScratchDirTest {
protected:
    void SetUp() override {
        ScratchDirTest::SetUp();
        source_ = dir_ + "/source";
        write_file(source_, "contents\n", 0640);
    }
    std::string source_;
};

TEST_F(FileCopyTest, CopyingAFileOntoItselfByTheSamePathDoesNothing) {
    EXPECT_EQ(copy_file(source_, source_), 0);
    EXPECT_EQ(read_file(source_), "contents\n");
    EXPECT_EQ(list_tree("/run/sorvane/locks"), std::vector<std::string>{});
}

TEST_F(FileCopyTest, CopyGetsTheSourceContentsAndMode) {
    write_file(dir_ + "/dest", "longer old contents\n", 0600);
    EXPECT_EQ(copy_file(source_, dir_ + "/dest"), 0);
    EXPECT_EQ(read_file(dir_ + "/dest"), "contents\n");
    EXPECT_EQ(file_info(dir_ + "/dest").mode, 0600U);
}

TEST_F(FileCopyTest, NewDestinationIsCreatedWithTheSourceMode) {
    umask(022);
    EXPECT_EQ(copy_file(source_, dir_ + "/new"), 0);
    EXPECT_EQ(read_file(dir_ + "/new"), "contents\n");
    EXPECT_EQ(file_info(dir_ + "/new").mode, 0640U);
    EXPECT_TRUE(path_exists("/run/sorvane/locks/" + md5_hex(dir_ + "/new")));
}

TEST_F(FileCopyTest, DashCopiesToStandardOutput) {
    const auto printed = printed_by([&] { EXPECT_EQ(copy_file(source_, "-"), 0); });
    EXPECT_EQ(printed.out, "contents\n");
    EXPECT_EQ(printed.err, "");
}

TEST_F(FileCopyTest, MissingSourceIsReported) {
    const auto printed = printed_by([&] { EXPECT_EQ(copy_file(dir_ + "/none", dir_ + "/dest"), 1); });
    expect_reported(printed,
                    with_system_error("Unable to open file " + dir_ + "/none: No such file or directory", ENOENT));
    EXPECT_FALSE(path_exists(dir_ + "/dest"));
}

TEST_F(FileCopyTest, ReadFailureIsReported) {
    const auto printed = printed_by([&] { EXPECT_EQ(copy_file(dir_, dir_ + "/dest"), 1); });
    expect_reported(printed, with_system_error(
                                 "Error while copying file " + dir_ + " to " + dir_ + "/dest: Is a directory", EISDIR));
}

TEST_F(FileCopyTest, ShortWriteIsReported) {
    const auto printed = printed_by([&] { EXPECT_EQ(copy_file(source_, "/dev/full"), 1); });
    expect_reported(
        printed,
        with_system_error("Unable to copy file " + source_ + " to /dev/full: No space left on device\n", ENOSPC));
}

TEST_F(FileCopyTest, ARefusedLockDirectoryFailsTheCopy) {
    sorvane::test::plant_foreign_lock_directory();
    const std::string dest = dir_ + "/dest";
    const auto printed = printed_by([&] { EXPECT_EQ(copy_file(source_, dest), 1); });
    expect_reported(printed, with_system_error("Lock directory /run/sorvane refused: it is not owned by root\n", EACCES) +
                                 with_system_error("Error occurred while locking the file " + dest + "\n", EACCES));
    EXPECT_FALSE(path_exists(dest));
}

TEST_F(FileCopyTest, ALinkAtTheDestinationIsNotWrittenThrough) {
    const std::string before = read_file("/etc/passwd");
    ASSERT_EQ(symlink("/etc/passwd", (dir_ + "/dest").c_str()), 0);
    const auto printed = printed_by([&] { EXPECT_EQ(copy_file(source_, dir_ + "/dest"), 1); });
    expect_reported(
        printed, with_system_error("Unable to open file " + dir_ + "/dest: Too many levels of symbolic links", ELOOP));
    EXPECT_EQ(read_file("/etc/passwd"), before);
}

TEST_F(FileCopyTest, AtomicCopyGivesOwnerGroupAndModeAndLeavesNoTemporaryFile) {
    write_file(dir_ + "/dest", "old\n", 0644);
    EXPECT_EQ(
        copy_file_atomic(source_, dir_ + "/dest", popuser_uid(), nofiles_gid(), 0600), 0);
    EXPECT_EQ(read_file(dir_ + "/dest"), "contents\n");
    const auto info = file_info(dir_ + "/dest");
    EXPECT_EQ(info.uid, popuser_uid());
    EXPECT_EQ(info.gid, nofiles_gid());
    EXPECT_EQ(info.mode, 0600U);
    EXPECT_EQ(list_tree(dir_), (std::vector<std::string>{"dest", "source"}));
}

TEST_F(FileCopyTest, AtomicCopyReplacesALinkInsteadOfWritingThroughIt) {
    const std::string before = read_file("/etc/passwd");
    ASSERT_EQ(symlink("/etc/passwd", (dir_ + "/dest").c_str()), 0);
    EXPECT_EQ(copy_file_atomic(source_, dir_ + "/dest", 0, 0, 0644), 0);
    EXPECT_EQ(file_info(dir_ + "/dest").type, 'f');
    EXPECT_EQ(read_file("/etc/passwd"), before);
}

TEST_F(FileCopyTest, AtomicCopyOfAMissingSourceIsReported) {
    const auto printed =
        printed_by([&] { EXPECT_EQ(copy_file_atomic(dir_ + "/none", dir_ + "/dest", 0, 0, 0644), 1); });
    expect_reported(printed,
                    with_system_error(
                        "copy_file_atomic(): source " + dir_ + "/none open failed: No such file or directory", ENOENT));
}

TEST_F(FileCopyTest, AtomicCopyIntoAMissingDirectoryFailsAtMkstemp) {
    const auto printed = printed_by([&] { EXPECT_EQ(copy_file_atomic(source_, dir_ + "/no/dest", 0, 0, 0644), 1); });
    expect_reported(printed,
                    with_system_error("copy_file_atomic(): mkstemp failed: No such file or directory", ENOENT));
}

TEST_F(FileCopyTest, AtomicCopyReadFailureRemovesTheTemporaryFile) {
    ASSERT_EQ(mkdir((dir_ + "/out").c_str(), 0755), 0);
    const auto printed = printed_by([&] { EXPECT_EQ(copy_file_atomic(dir_, dir_ + "/out/dest", 0, 0, 0644), 1); });
    expect_reported(printed, with_system_error("copy_file_atomic(): write_fd_to_fd failed: Is a directory", EISDIR));
    EXPECT_EQ(list_tree(dir_ + "/out"), std::vector<std::string>{});
}

TEST_F(FileCopyTest, AtomicCopyRenameFailureRemovesTheTemporaryFile) {
    ASSERT_EQ(mkdir((dir_ + "/dest").c_str(), 0755), 0);
    write_file(dir_ + "/dest/inside", "");
    const auto printed = printed_by([&] { EXPECT_EQ(copy_file_atomic(source_, dir_ + "/dest", 0, 0, 0644), 1); });
    const std::string prefix = "copy_file_atomic(): rename " + dir_ + "/dest.";
    ASSERT_EQ(printed.out.rfind(prefix, 0), 0U) << printed.out;
    const std::string temp_name = printed.out.substr(prefix.size() - 5, 11);  // "dest.XXXXXX"
    expect_reported(
        printed,
        with_system_error(prefix + temp_name.substr(5) + " to " + dir_ + "/dest failed: Is a directory", EISDIR));
    EXPECT_EQ(list_tree(dir_), (std::vector<std::string>{"dest/", "dest/inside", "source"}));
}

}  // namespace

}  // namespace sorvane::test
