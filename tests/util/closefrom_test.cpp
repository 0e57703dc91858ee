#include "util/closefrom.h"

#include "support/sandbox.h"

#include <sys/mount.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

bool is_open(int fd) {
    return fcntl(fd, F_GETFD) != -1;
}

TEST(Closefrom, ClosesEveryDescriptorFromTheLowestUpAndNoneBelow) {
    const int below = open("/dev/null", O_RDONLY);
    const int first = open("/dev/null", O_RDONLY);
    const int high = dup2(first, 200);
    ASSERT_GE(below, 3);
    ASSERT_GT(first, below);
    ASSERT_EQ(crelm::util::closefrom(first), 0);
    EXPECT_TRUE(is_open(below));
    EXPECT_FALSE(is_open(first));
    EXPECT_FALSE(is_open(high));
    EXPECT_TRUE(is_open(0));
    close(below);
}

}  // namespace

namespace {

class ClosefromWithoutProc : public sorvane::test::SandboxTest {};

TEST_F(ClosefromWithoutProc, UnreadableDescriptorListGivesMinusOneAndClosesNothing) {
    const int fd = open("/dev/null", O_RDONLY);
    ASSERT_EQ(umount2("/proc", MNT_DETACH), 0);
    const int result = crelm::util::closefrom(fd);
    const int failure = errno;
    ASSERT_EQ(mount("proc", "/proc", "proc", 0, nullptr), 0);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(failure, ENOENT);
    EXPECT_TRUE(is_open(fd));
    close(fd);
}

}  // namespace
