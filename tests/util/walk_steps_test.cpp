// Listing a directory for a walk: every name but "." and "..", however many
// reads of the directory that takes, through the walk's own descriptor.
#include "util/walk_steps.h"

#include "util_test_support.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

namespace sorvane::test {
namespace {

using crelm::util::read_directory_names;
using crelm::util::UniqueFd;

class WalkStepsTest : public SandboxTest {
protected:
    const std::string dir_ = "/var/qmail/mailnames/listed";
};

long open_descriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
}

// 2,000 names of 100 characters: several buffers of entries.
TEST_F(WalkStepsTest, EveryNameOfALargeDirectoryIsListedOnce) {
    ASSERT_EQ(mkdir(dir_.c_str(), 0700), 0);
    std::vector<std::string> made;
    for (int i = 0; i < 2000; ++i) {
        made.push_back(std::to_string(i) + std::string(100, 'n'));
        write_file(dir_ + "/" + made.back(), "");
    }
    ASSERT_EQ(mkdir((dir_ + "/sub").c_str(), 0700), 0);
    made.push_back("sub");
    const UniqueFd fd(::open(dir_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_TRUE(fd.valid());
    const long before = open_descriptors();
    std::vector<std::string> names;
    ASSERT_TRUE(read_directory_names(fd.get(), names));
    EXPECT_EQ(open_descriptors(), before);
    std::sort(names.begin(), names.end());
    std::sort(made.begin(), made.end());
    EXPECT_EQ(names, made);
}

TEST_F(WalkStepsTest, AnEmptyDirectoryListsNothing) {
    ASSERT_EQ(mkdir(dir_.c_str(), 0700), 0);
    const UniqueFd fd(::open(dir_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    std::vector<std::string> names;
    EXPECT_TRUE(read_directory_names(fd.get(), names));
    EXPECT_TRUE(names.empty());
}

// A handle that only names the directory cannot list it.
TEST_F(WalkStepsTest, APathHandleCannotBeListed) {
    ASSERT_EQ(mkdir(dir_.c_str(), 0700), 0);
    write_file(dir_ + "/a", "");
    const UniqueFd fd(::open(dir_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    std::vector<std::string> names;
    errno = 0;
    EXPECT_FALSE(read_directory_names(fd.get(), names));
    EXPECT_EQ(errno, EBADF);
}

}  // namespace
}  // namespace sorvane::test
