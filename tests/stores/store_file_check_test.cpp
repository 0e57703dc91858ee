// The look at a store's files before SQLite or the cipher opens them:
// missing and regular files pass, a directory is left to the stores' own
// failure, anything else ends the program with status 1 at once, without
// blocking on a FIFO.
#include "stores/store_file_check.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "support/sandbox.h"

namespace sorvane::test {
namespace {

class StoreFileCheckTest : public SandboxTest {
protected:
    std::string path(const std::string& name) { return scratch_dir() + "/" + name; }
};

TEST_F(StoreFileCheckTest, RegularFileGivesAReadableHandle) {
    write_file(path("store.db"), "abc", 0600);
    const crelm::util::UniqueFd fd = open_regular_store_file(path("store.db"), "Unable to open database");
    ASSERT_TRUE(fd.valid());
    char buffer[4] = {};
    EXPECT_EQ(::read(fd.get(), buffer, sizeof buffer), 3);
    EXPECT_STREQ(buffer, "abc");
}

TEST_F(StoreFileCheckTest, MissingFileGivesNoHandleAndEnoent) {
    errno = 0;
    const crelm::util::UniqueFd fd = open_regular_store_file(path("missing.db"), "Unable to open database");
    EXPECT_FALSE(fd.valid());
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(StoreFileCheckTest, FifoEndsTheProgramWithStatus1) {
    ASSERT_EQ(::mkfifo(path("store.db-journal").c_str(), 0600), 0);
    EXPECT_EXIT(open_regular_store_file(path("store.db-journal"), "Unable to open database x"),
                ::testing::ExitedWithCode(1),
                "Unable to open database x: " + path("store.db-journal") + " is a fifo, not a regular file");
}

TEST_F(StoreFileCheckTest, LinkIsNotFollowed) {
    write_file(path("target"), "key", 0600);
    ASSERT_EQ(::symlink(path("target").c_str(), path("key").c_str()), 0);
    EXPECT_EXIT(open_regular_store_file(path("key"), "Can't read encryption key"), ::testing::ExitedWithCode(1),
                "Can't read encryption key: " + path("key") + " is a symbolic link, not a regular file");
}

TEST_F(StoreFileCheckTest, DirectoryIsLeftToTheStoresOwnFailure) {
    ASSERT_EQ(::mkdir(path("store.db-wal").c_str(), 0700), 0);
    errno = 0;
    const crelm::util::UniqueFd fd = open_regular_store_file(path("store.db-wal"), "Unable to open database x");
    EXPECT_FALSE(fd.valid());
    EXPECT_EQ(errno, EISDIR);
}

TEST_F(StoreFileCheckTest, EveryJournalOfADatabaseIsLookedAt) {
    write_file(path("store.db"), "", 0600);
    write_file(path("store.db-journal"), "", 0600);
    require_regular_store_files(path("store.db"));
    for (const std::string suffix : {"-journal", "-wal", "-shm"}) {
        ::unlink(path("store.db" + suffix).c_str());
        ASSERT_EQ(::mkfifo(path("store.db" + suffix).c_str(), 0600), 0);
        EXPECT_EXIT(require_regular_store_files(path("store.db")), ::testing::ExitedWithCode(1),
                    "Unable to open database " + path("store.db") + ": " + path("store.db" + suffix) +
                        " is a fifo, not a regular file");
        ::unlink(path("store.db" + suffix).c_str());
    }
}

}  // namespace
}  // namespace sorvane::test
