// Removing the entries of a directory that a name test picks: files and
// links (never followed), not directories, nothing else.
#include "util/stale_entries.h"

#include "util_test_support.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace sorvane::test {
namespace {

using crelm::util::remove_stale_entries;

class StaleEntriesTest : public ScratchDirTest {};

TEST_F(StaleEntriesTest, PickedFilesAndLinksGoDirectoriesAndOthersStay) {
    ASSERT_EQ(mkdir((dir_ + "/work").c_str(), 0755), 0);
    write_file(dir_ + "/work/assign.mail.AAAAAA", "half");
    write_file(dir_ + "/work/assign", "whole\n");
    write_file(dir_ + "/victim", "victim\n");
    ASSERT_EQ(symlink((dir_ + "/victim").c_str(), (dir_ + "/work/assign.mail.BBBBBB").c_str()), 0);
    ASSERT_EQ(mkdir((dir_ + "/work/assign.mail.CCCCCC").c_str(), 0755), 0);
    const int fd = open((dir_ + "/work").c_str(), O_PATH | O_DIRECTORY);
    ASSERT_GE(fd, 0);
    remove_stale_entries(fd, [](std::string_view name) { return name.starts_with("assign.mail."); });
    close(fd);
    EXPECT_EQ(list_tree(dir_ + "/work"), (std::vector<std::string>{"assign", "assign.mail.CCCCCC/"}));
    EXPECT_EQ(read_file(dir_ + "/victim"), "victim\n");
}

TEST_F(StaleEntriesTest, AnUnreadableDirectoryIsPassedOver) {
    const int fd = open((dir_ + "/missing").c_str(), O_PATH | O_DIRECTORY);
    EXPECT_LT(fd, 0);
    remove_stale_entries(fd, [](std::string_view) { return true; });
    EXPECT_EQ(list_tree(dir_), std::vector<std::string>{});
}

}  // namespace
}  // namespace sorvane::test
