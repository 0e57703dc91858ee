#include "util/file_lock.h"

#include "printed.h"
#include "runtime/md5_hex.h"
#include "support/sandbox.h"
#include "util/file_str.h"
#include "util/line_edit.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

namespace {

using sorvane::test::path_exists;
using sorvane::test::printed_by;
using sorvane::test::read_file;
using sorvane::test::write_file;

class FileLockTest : public sorvane::test::SandboxTest {};

const std::string kEdited = "/var/qmail/control/rcpthosts";

std::string lock_path_for(const std::string& path) {
    return "/run/sorvane/locks/" + md5_hex(path);
}

// A second process that holds the lock of path until told to go on. When
// told, it first appends its own line to the file (while still holding the
// lock) and then lets the lock go.
class LockHolder {
public:
    explicit LockHolder(const std::string& path) {
        EXPECT_EQ(pipe(held_), 0);
        EXPECT_EQ(pipe(go_), 0);
        pid_ = fork();
        if (pid_ == 0)
            hold(path);
        close(held_[1]);
        close(go_[0]);
        char byte = 0;
        EXPECT_EQ(read(held_[0], &byte, 1), 1);
    }
    ~LockHolder() {
        finish();
        close(held_[0]);
    }
    void finish() {
        if (pid_ <= 0)
            return;
        // A byte, not the pipe's end: other children may hold copies of it.
        EXPECT_EQ(write(go_[1], "G", 1), 1);
        close(go_[1]);
        EXPECT_EQ(sorvane::test::reap(pid_), 0);
        pid_ = -1;
    }

private:
    [[noreturn]] void hold(const std::string& path) {
        close(held_[0]);
        close(go_[1]);
        FileLock lock = lock_file(path, LockPlace::lock_directory);
        if (!lock.held())
            _exit(1);
        [[maybe_unused]] const ssize_t sent = write(held_[1], "L", 1);
        char byte = 0;
        [[maybe_unused]] const ssize_t got = read(go_[0], &byte, 1);
        std::ofstream(path, std::ios::app) << "holder\n";
        _exit(unlock_file(lock) == 0 ? 0 : 2);
    }

    int held_[2] = {-1, -1};
    int go_[2] = {-1, -1};
    pid_t pid_ = -1;
};

using sorvane::test::waits_for_flock;

TEST_F(FileLockTest, LockFileIsNamedByTheMd5OfThePathInTheLockDirectory) {
    FileLock lock = lock_file(kEdited, LockPlace::lock_directory);
    EXPECT_GT(lock.descriptor(), 0);
    EXPECT_TRUE(lock.held());
    EXPECT_EQ(lock.path(), lock_path_for(kEdited));
    EXPECT_EQ(sorvane::test::file_info(lock.path()).mode, 0600U);
    EXPECT_EQ(unlock_file(lock), 0);
    EXPECT_TRUE(path_exists(lock_path_for(kEdited)));  // the lock file stays
}

TEST_F(FileLockTest, WithoutTheLockDirectoryThePathItselfIsLocked) {
    const std::string path = sorvane::test::scratch_dir() + "/own.lock";
    FileLock lock = lock_file(path, LockPlace::the_file_itself);
    EXPECT_TRUE(lock.held());
    EXPECT_EQ(lock.path(), path);
    EXPECT_TRUE(path_exists(path));
}

TEST_F(FileLockTest, TryLockGivesZeroWhileAnotherProcessHoldsTheLock) {
    LockHolder holder(kEdited);
    FileLock attempt = try_lock_file(kEdited, LockPlace::lock_directory);
    EXPECT_EQ(attempt.descriptor(), 0);
    EXPECT_FALSE(attempt.held());
    holder.finish();
    FileLock after = try_lock_file(kEdited, LockPlace::lock_directory);
    EXPECT_TRUE(after.held());
}

TEST_F(FileLockTest, ReleasingTheHandleLetsOthersLock) {
    FileLock first = lock_file(kEdited, LockPlace::lock_directory);
    EXPECT_EQ(try_lock_file(kEdited, LockPlace::lock_directory).descriptor(), 0);
    EXPECT_EQ(unlock_file(first), 0);
    EXPECT_EQ(first.descriptor(), 0);
    EXPECT_TRUE(try_lock_file(kEdited, LockPlace::lock_directory).held());
}

// A lock kept after a failure, asked for again by the same process (here
// through another name of the same file): refused at once, never waited on.
TEST_F(FileLockTest, ALockThisProcessKeepsIsRefusedInsteadOfWaitedOn) {
    ASSERT_EQ(symlink("/var/qmail/control", "/var/qmail/linked-control"), 0);
    FileLock kept = lock_file(kEdited, LockPlace::lock_directory);
    ASSERT_TRUE(kept.held());
    kept.keep_until_exit();
    const FileLock again = lock_file("/var/qmail/linked-control/rcpthosts", LockPlace::lock_directory);
    EXPECT_EQ(again.descriptor(), -1);
    EXPECT_EQ(errno, EDEADLK);
}

TEST_F(FileLockTest, ALockReleasedByThisProcessCanBeTakenAgain) {
    FileLock first = lock_file(kEdited, LockPlace::lock_directory);
    ASSERT_TRUE(first.held());
    EXPECT_EQ(unlock_file(first), 0);
    EXPECT_TRUE(lock_file(kEdited, LockPlace::lock_directory).held());
}

TEST_F(FileLockTest, ARefusedLockDirectoryGivesDescriptorZeroAndAMessage) {
    sorvane::test::plant_foreign_lock_directory();
    int descriptor = -2;
    const auto printed = printed_by([&] { descriptor = lock_file(kEdited, LockPlace::lock_directory).descriptor(); });
    EXPECT_EQ(descriptor, 0);
    sorvane::test::expect_reported(
        printed, sorvane::test::with_system_error("Lock directory /run/sorvane refused: it is not owned by root\n",
                                                  EACCES));
    EXPECT_TRUE(sorvane::test::list_tree("/run/sorvane").empty());
}

TEST_F(FileLockTest, LineEditorWaitsForTheLockHeldByAnotherProcess) {
    write_file(kEdited, "first\n");
    LockHolder holder(kEdited);
    const pid_t editor = fork();
    if (editor == 0)
        _exit(file_str_one(kEdited, "editor", LineAction::add, LinePosition::end));
    while (!waits_for_flock(editor))
        ASSERT_EQ(waitpid(editor, nullptr, WNOHANG), 0) << "the editor ended without waiting for the lock";
    EXPECT_EQ(read_file(kEdited), "first\n");
    holder.finish();
    EXPECT_EQ(sorvane::test::reap(editor), 0);
    // The editor's line comes after the one written under the holder's lock.
    EXPECT_EQ(read_file(kEdited), "first\nholder\neditor\n");
}

// The whole-file line edit takes the same lock as the line editor: a line
// written under another process's lock between the edit's read and its
// rename would otherwise be lost.
TEST_F(FileLockTest, WholeFileEditWaitsForTheLockHeldByAnotherProcess) {
    write_file(kEdited, "old.test\n");
    LockHolder holder(kEdited);
    const pid_t editor = fork();
    if (editor == 0)
        _exit(edit_lines_locked(kEdited, crelm::util::LineRewrite{[](std::string_view line, std::string& replaced) {
                                                                 if (line != "old.test")
                                                                     return crelm::util::LineFate::keep;
                                                                 replaced = "new.test";
                                                                 return crelm::util::LineFate::replace;
                                                             },
                                                             "",
                                                             {}}) == 0
                  ? 0
                  : 1);
    while (!waits_for_flock(editor))
        ASSERT_EQ(waitpid(editor, nullptr, WNOHANG), 0) << "the whole-file edit ended without waiting for the lock";
    EXPECT_EQ(read_file(kEdited), "old.test\n");
    holder.finish();
    EXPECT_EQ(sorvane::test::reap(editor), 0);
    EXPECT_EQ(read_file(kEdited), "new.test\nholder\n");
}

}  // namespace
