#include "util/handed_down_locks.h"

#include "printed.h"
#include "runtime/md5_hex.h"
#include "support/sandbox.h"
#include "util/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

namespace {

class HandedDownLocksTest : public sorvane::test::SandboxTest {
protected:
    void TearDown() override {
        crelm::util::release_handed_down_locks();
        sorvane::test::SandboxTest::TearDown();
    }
};

const std::string kEdited = "/var/qmail/users/assign";

std::string lock_path_for(const std::string& path) {
    return "/run/sorvane/locks/" + md5_hex(path);
}

// Runs body in a forked process: its result is the exit status.
int in_child(const std::function<int()>& body) {
    const pid_t pid = fork();
    if (pid == 0)
        _exit(body());
    return sorvane::test::reap(pid);
}

// Whether a process holding no lock of ours can take the lock at once.
bool free_for_others() {
    return in_child([] {
        const int fd = open(lock_path_for(kEdited).c_str(), O_RDWR | O_CLOEXEC);
        return fd >= 0 && flock(fd, LOCK_EX | LOCK_NB) == 0 ? 0 : 1;
    }) == 0;
}

void hand_down_the_lock() {
    FileLock lock = lock_file(kEdited, LockPlace::lock_directory);
    ASSERT_TRUE(lock.held());
    crelm::util::hand_down_lock(std::move(lock));
}

TEST_F(HandedDownLocksTest, AForkedProcessIsGivenTheLockAtOnceAndOthersWait) {
    hand_down_the_lock();
    EXPECT_EQ(in_child([] { return lock_file(kEdited, LockPlace::lock_directory).held() ? 0 : 1; }), 0);
    EXPECT_EQ(in_child([] { return try_lock_file(kEdited, LockPlace::lock_directory).held() ? 0 : 1; }), 0);
    EXPECT_FALSE(free_for_others());
}

TEST_F(HandedDownLocksTest, TheForkedProcessReleasingItKeepsTheHoldersLock) {
    hand_down_the_lock();
    EXPECT_EQ(in_child([] {
                  FileLock lock = lock_file(kEdited, LockPlace::lock_directory);
                  return lock.held() && unlock_file(lock) == 0 ? 0 : 1;
              }),
              0);
    EXPECT_FALSE(free_for_others());
    EXPECT_EQ(crelm::util::release_handed_down_locks(), 0);
    EXPECT_TRUE(free_for_others());
}

TEST_F(HandedDownLocksTest, TheForkedProcessTakingItTwiceIsRefusedAsAlone) {
    hand_down_the_lock();
    EXPECT_EQ(in_child([] {
                  FileLock first = lock_file(kEdited, LockPlace::lock_directory);
                  FileLock second = lock_file(kEdited, LockPlace::lock_directory);
                  return first.held() && second.descriptor() == -1 && errno == EDEADLK ? 0 : 1;
              }),
              0);
}

TEST_F(HandedDownLocksTest, TheDescriptorGivenDoesNotSurviveAnExec) {
    hand_down_the_lock();
    EXPECT_EQ(in_child([] {
                  FileLock lock = lock_file(kEdited, LockPlace::lock_directory);
                  return lock.held() && (fcntl(lock.descriptor(), F_GETFD) & FD_CLOEXEC) != 0 ? 0 : 1;
              }),
              0);
}

TEST_F(HandedDownLocksTest, WithoutAHandedDownLockAForkedProcessWaitsAsAnyOther) {
    FileLock lock = lock_file(kEdited, LockPlace::lock_directory);
    ASSERT_TRUE(lock.held());
    EXPECT_EQ(in_child([] { return try_lock_file(kEdited, LockPlace::lock_directory).held() ? 1 : 0; }), 0);
}

}  // namespace
