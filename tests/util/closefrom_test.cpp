#include "util/closefrom.h"

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
