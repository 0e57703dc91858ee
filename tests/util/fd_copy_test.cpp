#include "util/fd_copy.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include <gtest/gtest.h>

namespace {

// A memory file holding text, its offset at the start.
int memory_file_with(const std::string& text) {
    const int fd = memfd_create("fd-copy-test", MFD_CLOEXEC);
    EXPECT_GE(fd, 0);
    EXPECT_TRUE(crelm::util::write_all(fd, text));
    EXPECT_EQ(lseek(fd, 0, SEEK_SET), 0);
    return fd;
}

TEST(FdCopyTest, ReadToEndAppendsAllFromTheOffsetOn) {
    std::string large(200000, 'x');
    large[150000] = '\0';
    const int fd = memory_file_with("head:" + large);
    ASSERT_EQ(lseek(fd, 5, SEEK_SET), 5);
    std::string text = "before:";
    EXPECT_TRUE(crelm::util::read_to_end(fd, text));
    EXPECT_EQ(text, "before:" + large);
    close(fd);
}

TEST(FdCopyTest, ReadToEndOfAnEmptyFileAddsNothing) {
    const int fd = memory_file_with("");
    std::string text = "kept";
    EXPECT_TRUE(crelm::util::read_to_end(fd, text));
    EXPECT_EQ(text, "kept");
    close(fd);
}

TEST(FdCopyTest, ReadToEndOfADescriptorThatCannotBeReadFails) {
    const int fd = open("/dev/null", O_WRONLY | O_CLOEXEC);
    std::string text;
    errno = 0;
    EXPECT_FALSE(crelm::util::read_to_end(fd, text));
    EXPECT_EQ(errno, EBADF);
    close(fd);
}

TEST(FdCopyTest, WriteAllAndCopyDescriptorCarryEveryByte) {
    const std::string text(70000, 'y');
    const int from = memory_file_with(text);
    const int to = memfd_create("fd-copy-test-to", MFD_CLOEXEC);
    EXPECT_EQ(crelm::util::copy_descriptor(from, to), crelm::util::CopyFailure::none);
    ASSERT_EQ(lseek(to, 0, SEEK_SET), 0);
    std::string copied;
    EXPECT_TRUE(crelm::util::read_to_end(to, copied));
    EXPECT_EQ(copied, text);
    close(from);
    close(to);
}

}  // namespace
