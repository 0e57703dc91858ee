// The lock directory: made by the program, owned by root, refused when
// anyone else could have made it or could reach into it.
#include "util/lock_directory.h"

#include "printed.h"
#include "runtime/md5_hex.h"
#include "support/sandbox.h"
#include "util/file_lock.h"
#include "util/file_str.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

namespace {

using sorvane::test::expect_reported;
using sorvane::test::file_info;
using sorvane::test::list_tree;
using sorvane::test::printed_by;
using sorvane::test::with_system_error;

class LockDirectoryTest : public sorvane::test::SandboxTest {};

const std::string kEdited = "/var/qmail/control/rcpthosts";

// Takes and releases the lock of kEdited: the descriptor it got (greater
// than 0 when the lock was held) and what it printed.
std::pair<int, sorvane::test::Printed> lock_once() {
    int descriptor = -1;
    const auto printed = printed_by([&] {
        FileLock lock = lock_file(kEdited, LockPlace::lock_directory);
        descriptor = lock.descriptor();
    });
    return {descriptor, printed};
}

std::string refused(const std::string& path, const std::string& why) {
    return with_system_error("Lock directory " + path + " refused: " + why + "\n", EACCES);
}

TEST_F(LockDirectoryTest, IsMadeWhenMissingForRootAlone) {
    const auto [descriptor, printed] = lock_once();
    EXPECT_GT(descriptor, 0);
    EXPECT_EQ(printed.out, "");
    for (const std::string path : {"/run/sorvane", "/run/sorvane/locks"}) {
        const auto info = file_info(path);
        EXPECT_EQ(info.type, 'd');
        EXPECT_EQ(info.uid, 0u);
        EXPECT_EQ(info.mode, 0700u) << path;
    }
    const std::string lock = "/run/sorvane/locks/" + md5_hex(kEdited);
    EXPECT_EQ(file_info(lock).type, 'f');
    EXPECT_EQ(file_info(lock).mode, 0600u);
}

TEST_F(LockDirectoryTest, IsMadeUnderAnyUmask) {
    umask(0);
    EXPECT_GT(lock_once().first, 0);
    EXPECT_EQ(file_info("/run/sorvane/locks").mode, 0700u);
    EXPECT_EQ(file_info("/run/sorvane/locks/" + md5_hex(kEdited)).mode, 0600u);
}

TEST_F(LockDirectoryTest, AnExistingSafeDirectoryIsUsed) {
    ASSERT_EQ(mkdir("/run/sorvane", 0755), 0);
    ASSERT_EQ(mkdir("/run/sorvane/locks", 0711), 0);
    EXPECT_GT(lock_once().first, 0);
}

TEST_F(LockDirectoryTest, ADirectoryAnotherUserOwnsIsRefusedAndNothingIsMadeInIt) {
    sorvane::test::plant_foreign_lock_directory();
    const auto [descriptor, printed] = lock_once();
    EXPECT_EQ(descriptor, 0);
    expect_reported(printed, refused("/run/sorvane", "it is not owned by root"));
    EXPECT_TRUE(list_tree("/run/sorvane").empty());
}

TEST_F(LockDirectoryTest, ALinkAtTheDirectoryIsRefusedAndNotFollowed) {
    ASSERT_EQ(mkdir("/tmp/elsewhere", 0700), 0);
    ASSERT_EQ(symlink("/tmp/elsewhere", "/run/sorvane"), 0);
    const auto [descriptor, printed] = lock_once();
    EXPECT_EQ(descriptor, 0);
    expect_reported(printed, refused("/run/sorvane", "it is a symbolic link"));
    EXPECT_TRUE(list_tree("/tmp/elsewhere").empty());
}

TEST_F(LockDirectoryTest, ALinkAtTheLocksDirectoryIsRefused) {
    ASSERT_EQ(mkdir("/run/sorvane", 0700), 0);
    ASSERT_EQ(mkdir("/tmp/elsewhere", 0700), 0);
    ASSERT_EQ(symlink("/tmp/elsewhere", "/run/sorvane/locks"), 0);
    const auto [descriptor, printed] = lock_once();
    EXPECT_EQ(descriptor, 0);
    expect_reported(printed, refused("/run/sorvane/locks", "it is a symbolic link"));
    EXPECT_TRUE(list_tree("/tmp/elsewhere").empty());
}

TEST_F(LockDirectoryTest, AFileInPlaceOfTheDirectoryIsRefused) {
    sorvane::test::write_file("/run/sorvane", "");
    const auto [descriptor, printed] = lock_once();
    EXPECT_EQ(descriptor, 0);
    expect_reported(printed, refused("/run/sorvane", "it is not a directory"));
}

TEST_F(LockDirectoryTest, ADirectoryOthersCanWriteToIsRefused) {
    ASSERT_EQ(mkdir("/run/sorvane", 0700), 0);
    ASSERT_EQ(mkdir("/run/sorvane/locks", 0700), 0);
    ASSERT_EQ(chmod("/run/sorvane/locks", 01777), 0);
    const auto [descriptor, printed] = lock_once();
    EXPECT_EQ(descriptor, 0);
    expect_reported(printed, refused("/run/sorvane/locks", "it is writable by group or others"));
    EXPECT_TRUE(list_tree("/run/sorvane/locks").empty());
}

// The checked directory is kept for the process's later locks; one removed
// by hand since then is made and checked again, not given up on.
TEST_F(LockDirectoryTest, ADirectoryRemovedSinceItsCheckIsMadeAgain) {
    ASSERT_GT(lock_once().first, 0);
    std::filesystem::remove_all("/run/sorvane");
    const auto [descriptor, printed] = lock_once();
    EXPECT_GT(descriptor, 0);
    EXPECT_EQ(printed.out, "");
    EXPECT_EQ(printed.err, "");
    EXPECT_EQ(list_tree("/run/sorvane"), (std::vector<std::string>{"locks/", "locks/" + md5_hex(kEdited)}));
    EXPECT_EQ(file_info("/run/sorvane/locks").mode, 0700u);
}

// One that root moved aside since is given up: the next lock is taken where
// every other process takes it, in the directory the path names now.
TEST_F(LockDirectoryTest, ADirectoryReplacedSinceItsCheckIsGivenUp) {
    ASSERT_GT(lock_once().first, 0);
    ASSERT_EQ(rename("/run/sorvane/locks", "/run/sorvane/old"), 0);
    const std::string other = "/var/qmail/control/locals";
    FileLock lock = lock_file(other, LockPlace::lock_directory);
    EXPECT_GT(lock.descriptor(), 0);
    EXPECT_EQ(list_tree("/run/sorvane"), (std::vector<std::string>{"locks/", "locks/" + md5_hex(other), "old/",
                                                                   "old/" + md5_hex(kEdited)}));
}

// A refusal is not kept: the next lock checks again, and takes a directory
// made right since.
TEST_F(LockDirectoryTest, ARefusedDirectoryIsCheckedAgainAtTheNextLock) {
    sorvane::test::write_file("/run/sorvane", "");
    EXPECT_EQ(lock_once().first, 0);
    ASSERT_EQ(unlink("/run/sorvane"), 0);
    EXPECT_GT(lock_once().first, 0);
    EXPECT_EQ(file_info("/run/sorvane/locks").type, 'd');
}

// The kept handle never sits on a standard descriptor, which a batch's
// command puts its own files over.
TEST_F(LockDirectoryTest, TheKeptHandleStaysAboveTheStandardDescriptors) {
    // With all three closed, the walk's own handles would take them.
    int saved[3];
    for (int fd = 0; fd < 3; ++fd)
        ASSERT_GE(saved[fd] = ::fcntl(fd, F_DUPFD_CLOEXEC, 10), 0);
    for (int fd = 0; fd < 3; ++fd)
        ::close(fd);
    const int kept = crelm::util::lock_directory_handle();
    for (int fd = 0; fd < 3; ++fd) {
        ASSERT_EQ(::dup2(saved[fd], fd), fd);
        ::close(saved[fd]);
    }
    EXPECT_GT(kept, STDERR_FILENO);
    struct stat info {};
    ASSERT_EQ(::fstat(kept, &info), 0);
    EXPECT_TRUE(S_ISDIR(info.st_mode));
    EXPECT_EQ(crelm::util::lock_directory_handle(), kept);
}

// Every way of naming one file takes the same lock.
TEST_F(LockDirectoryTest, TheLockKeyIsTheCanonicalPath) {
    EXPECT_EQ(crelm::util::lock_file_name(kEdited), md5_hex(kEdited));
    EXPECT_EQ(crelm::util::lock_file_name("/var/qmail/control/../control/./rcpthosts"), md5_hex(kEdited));
    ASSERT_EQ(symlink("/var/qmail/control", "/tmp/control"), 0);
    EXPECT_EQ(crelm::util::lock_file_name("/tmp/control/rcpthosts"), md5_hex(kEdited));
    ASSERT_EQ(chdir("/var/qmail"), 0);
    EXPECT_EQ(crelm::util::lock_file_name("control/rcpthosts"), md5_hex(kEdited));
}

// A local user can neither open a lock file (a read-only descriptor would be
// enough to hold its flock and freeze every root command), nor make an entry
// in the lock directory, nor make the directory first.
TEST_F(LockDirectoryTest, AnUnprivilegedUserCanNeitherOpenNorPlantAnything) {
    ASSERT_EQ(chmod("/run", 01777), 0);
    ASSERT_EQ(file_str_one(kEdited, "a.test", LineAction::add, LinePosition::end), 0);
    const std::string lock = "/run/sorvane/locks/" + md5_hex(kEdited);
    const std::string attempts =
        "(exec 3<\"$1\") 2>/dev/null && exit 1\n"
        "flock -n \"$1\" true 2>/dev/null && exit 2\n"
        "ln -s /tmp /run/sorvane/locks/planted 2>/dev/null && exit 3\n"
        "(: > /run/sorvane/locks/planted) 2>/dev/null && exit 4\n"
        "ls /run/sorvane/locks 2>/dev/null && exit 5\n"
        "exit 0\n";
    const auto run = sorvane::test::run_process({"/usr/bin/setpriv", "--reuid=65534", "--regid=65534",
                                                 "--clear-groups", "/bin/sh", "-c", attempts, "user", lock});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(list_tree("/run/sorvane"), (std::vector<std::string>{"locks/", "locks/" + md5_hex(kEdited)}));
    EXPECT_GT(lock_once().first, 0);
}

}  // namespace
