// The owners that clean up on the way out of a failure (descriptors,
// directory streams, temporary files, streams) leave errno as the failing
// call set it, even when their own clean-up fails.
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "support/sandbox.h"
#include "util/stdio_file.h"
#include "util/temp_file.h"
#include "util/unique_fd.h"

namespace sorvane::test {
namespace {

using CleanupKeepsErrnoTest = SandboxTest;

TEST_F(CleanupKeepsErrnoTest, ADescriptorWhoseCloseFailsKeepsErrno) {
    crelm::util::UniqueFd fd(::dup(STDIN_FILENO));
    ASSERT_TRUE(fd.valid());
    ASSERT_EQ(::close(fd.get()), 0);  // closing it again fails with EBADF
    errno = ENOSPC;
    fd.reset();
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_FALSE(fd.valid());
}

TEST_F(CleanupKeepsErrnoTest, AnExplicitCloseStillTellsItsOwnFailure) {
    crelm::util::UniqueFd fd(::dup(STDIN_FILENO));
    ASSERT_EQ(::close(fd.get()), 0);
    errno = 0;
    EXPECT_EQ(fd.close(), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(CleanupKeepsErrnoTest, ADirectoryStreamClosedOnTheWayOutKeepsErrno) {
    {
        crelm::util::UniqueDir dir(::opendir(scratch_dir().c_str()));
        ASSERT_TRUE(dir.valid());
        ASSERT_EQ(::close(::dirfd(dir.get())), 0);
        errno = ENOSPC;
    }
    EXPECT_EQ(errno, ENOSPC);
}

TEST_F(CleanupKeepsErrnoTest, ATemporaryFileRemovedOnTheWayOutKeepsErrno) {
    const crelm::util::UniqueFd dir(::open(scratch_dir().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    ASSERT_TRUE(dir.valid());
    {
        crelm::util::TempFile temp = crelm::util::TempFile::create_unique(dir.get(), "data.tmp.", "data.tmp.");
        ASSERT_TRUE(temp.valid());
        // Both clean-up calls fail: the descriptor is closed already and the
        // name is gone.
        ASSERT_EQ(::close(temp.fd()), 0);
        ASSERT_EQ(::unlinkat(dir.get(), temp.path().c_str(), 0), 0);
        errno = ENOSPC;
    }
    EXPECT_EQ(errno, ENOSPC);
}

TEST_F(CleanupKeepsErrnoTest, AStreamClosedOnTheWayOutKeepsErrno) {
    {
        crelm::util::StdioFile stream(std::fopen((scratch_dir() + "/stream").c_str(), "w"));
        ASSERT_TRUE(stream);
        ASSERT_EQ(std::fputs("unflushed", stream.get()), 1);
        ASSERT_EQ(::close(::fileno(stream.get())), 0);  // the flush at fclose fails
        errno = ENOSPC;
    }
    EXPECT_EQ(errno, ENOSPC);
}

}  // namespace
}  // namespace sorvane::test
