// The size of a directory tree: bytes or 1024-byte blocks, symbolic links
// never followed, hard-linked files counted once; checked against du.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>

#include "support/sandbox.h"
#include "util/dir_size.h"

namespace fs = std::filesystem;

namespace sorvane::test {
namespace {

class DirSizeTest : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        root = scratch_dir() + "/@attachments";
        fs::create_directories(root + "/a/b");
        write_file(root + "/one", std::string(3000, '1'));
        write_file(root + "/a/two", std::string(70000, '2'));
        write_file(root + "/a/b/three", "3");
        write_file(root + "/a/b/empty", "");
    }

    // What du says about root, "-sb" or "-sk".
    long long du(const char* option) {
        const auto result = run_process({"/usr/bin/du", option, root});
        EXPECT_EQ(result.status, 0) << result.err;
        return std::stoll(result.out);
    }

    std::string root;
};

TEST_F(DirSizeTest, BytesAgreeWithDu) {
    EXPECT_EQ(dir_size(root.c_str(), SizeUnit::Bytes), du("-sb"));
    EXPECT_GT(dir_size(root.c_str(), SizeUnit::Bytes), 73001);
}

TEST_F(DirSizeTest, BlocksAgreeWithDu) {
    EXPECT_EQ(dir_size(root.c_str(), SizeUnit::Blocks), du("-sk"));
    EXPECT_GE(dir_size(root.c_str(), SizeUnit::Blocks), 72);
}

TEST_F(DirSizeTest, HardLinkedFileCountsOnce) {
    const long long before = dir_size(root.c_str(), SizeUnit::Bytes);
    fs::create_hard_link(root + "/a/two", root + "/a/b/two-again");
    // Only the directory holding the new name grows (by its entry).
    EXPECT_LT(dir_size(root.c_str(), SizeUnit::Bytes), before + 1000);
    EXPECT_EQ(dir_size(root.c_str(), SizeUnit::Bytes), du("-sb"));
    EXPECT_EQ(dir_size(root.c_str(), SizeUnit::Blocks), du("-sk"));
}

TEST_F(DirSizeTest, LinksCountAsThemselvesAndAreNotFollowed) {
    const std::string outside = scratch_dir() + "/outside";
    fs::create_directories(outside);
    write_file(outside + "/huge", std::string(500000, 'h'));
    const long long before = dir_size(root.c_str(), SizeUnit::Bytes);
    fs::create_symlink(outside + "/huge", root + "/a/file-link");
    fs::create_directory_symlink(outside, root + "/dir-link");
    const long long links = static_cast<long long>((outside + "/huge").size() + outside.size());
    const long long after = dir_size(root.c_str(), SizeUnit::Bytes);
    EXPECT_GE(after, before + links);
    EXPECT_LT(after, before + links + 1000);  // the directories grow by an entry each
    EXPECT_EQ(dir_size(root.c_str(), SizeUnit::Bytes), du("-sb"));
    EXPECT_EQ(dir_size(root.c_str(), SizeUnit::Blocks), du("-sk"));
}

TEST_F(DirSizeTest, LinkedTopIsNotFollowed) {
    const std::string link = scratch_dir() + "/link";
    fs::create_directory_symlink(root, link);
    EXPECT_EQ(dir_size(link.c_str(), SizeUnit::Bytes), static_cast<long long>(root.size()));
}

TEST_F(DirSizeTest, MissingPathIsZero) {
    EXPECT_EQ(dir_size((scratch_dir() + "/none").c_str(), SizeUnit::Bytes), 0);
}

TEST_F(DirSizeTest, FileIsItsOwnSize) {
    EXPECT_EQ(dir_size((root + "/one").c_str(), SizeUnit::Bytes), 3000);
}

// What dir_size of root prints as popuser, when it answers -1: standard
// error, then standard output.
std::string printed_measuring_as_popuser(const std::string& root) {
    int out[2];
    EXPECT_EQ(pipe(out), 0);
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(out[1], 1);
        dup2(out[1], 2);
        if (setgid(popuser_gid()) != 0 || setuid(popuser_uid()) != 0)
            _exit(99);
        const long long size = dir_size(root.c_str(), SizeUnit::Bytes);
        std::fflush(nullptr);
        _exit(size == -1 ? 0 : 1);
    }
    close(out[1]);
    std::string printed;
    char buffer[4096];
    for (ssize_t n; (n = read(out[0], buffer, sizeof buffer)) > 0;)
        printed.append(buffer, static_cast<std::size_t>(n));
    close(out[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    return printed;
}

TEST_F(DirSizeTest, UnreadableDirectoryFailsWithItsPath) {
    chmod(root.c_str(), 0755);
    chmod((root + "/a").c_str(), 0700);  // closed to everyone but root
    const std::string message = "Unable to measure size of " + root + "/a\nSystem error 13: Permission denied\n";
    EXPECT_EQ(printed_measuring_as_popuser(root), message + message);
}

// A mail user's name for a folder reaches the message escaped: its newline
// starts no line of its own, its escape byte drives no terminal.
TEST_F(DirSizeTest, ANameFromTheTreeIsShownEscaped) {
    chmod(root.c_str(), 0755);
    ASSERT_EQ(rename((root + "/a").c_str(), (root + "/a\nOK\x1b[2J").c_str()), 0);
    chmod((root + "/a\nOK\x1b[2J").c_str(), 0700);
    const std::string message =
        "Unable to measure size of " + root + "/a\\nOK\\x1b[2J\nSystem error 13: Permission denied\n";
    EXPECT_EQ(printed_measuring_as_popuser(root), message + message);
}

}  // namespace
}  // namespace sorvane::test
