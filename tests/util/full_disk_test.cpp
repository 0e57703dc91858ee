// Replacing and appending on a full filesystem: the edit fails with its
// message and the file keeps its old content, with no temporary file left.

#include "printed.h"
#include "util/file_copy.h"
#include "util/file_str.h"
#include "util/line_edit.h"
#include "util/temp_file.h"
#include "util_test_support.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

namespace sorvane::test {
namespace {

constexpr std::size_t kPage = 4096;

// A two-page tmpfs whose second page is taken by a filler file, so that the
// edited file can hold at most one page.
class FullDiskTest : public ScratchDirTest {
protected:
    void SetUp() override {
        ScratchDirTest::SetUp();
        disk_ = dir_ + "/disk";
        ASSERT_EQ(mkdir(disk_.c_str(), 0755), 0);
        ASSERT_EQ(mount("full-disk", disk_.c_str(), "tmpfs", 0, "size=8k,mode=0755"), 0);
        write_file(disk_ + "/filler", std::string(kPage, 'f'));
        path_ = disk_ + "/rcpthosts";
    }
    void TearDown() override {
        umount2(disk_.c_str(), MNT_DETACH);
        ScratchDirTest::TearDown();
    }
    std::vector<std::string> entries() { return list_tree(disk_); }

    std::string disk_;
    std::string path_;
};

// 4000 bytes of whole lines: room for 96 more bytes in the file's page.
std::string almost_a_page() {
    std::string text;
    while (text.size() < 4000)
        text += "domain" + std::to_string(text.size()) + ".example\n";
    return text.substr(0, text.rfind('\n', 3999) + 1);
}

TEST_F(FullDiskTest, AnAppendThatFitsOnlyInPartIsTakenBack) {
    const std::string before = almost_a_page();
    write_file(path_, before);
    const std::string line(200, 'x');
    const auto printed = printed_by([&] { EXPECT_EQ(file_str_one(path_, line, LineAction::add, LinePosition::end), 1); });
    expect_reported(printed,
                    with_system_error("Unable to write data into file " + path_ + ": No space left on device\n", ENOSPC));
    EXPECT_EQ(read_file(path_), before);
    EXPECT_EQ(entries(), (std::vector<std::string>{"filler", "rcpthosts"}));
}

TEST_F(FullDiskTest, AnAppendThatMadeTheFileRemovesItAgain) {
    write_file(disk_ + "/more", std::string(kPage, 'm'));
    const auto printed =
        printed_by([&] { EXPECT_EQ(file_str_one(path_, "example.com", LineAction::add, LinePosition::end), 1); });
    expect_reported(printed,
                    with_system_error("Unable to write data into file " + path_ + ": No space left on device\n", ENOSPC));
    EXPECT_EQ(entries(), (std::vector<std::string>{"filler", "more"}));
}

TEST_F(FullDiskTest, AnAdditionAtTheTopLeavesTheOldFile) {
    const std::string before = almost_a_page();
    write_file(path_, before);
    const auto printed =
        printed_by([&] { EXPECT_EQ(file_str_one(path_, "=new:line", LineAction::add, LinePosition::start), 1); });
    EXPECT_NE(printed.out.find("No space left on device"), std::string::npos) << printed.out;
    EXPECT_EQ(read_file(path_), before);
    EXPECT_EQ(entries(), (std::vector<std::string>{"filler", "rcpthosts"}));
}

TEST_F(FullDiskTest, AWholeFileLineEditLeavesTheOldFile) {
    const std::string before = almost_a_page();
    write_file(path_, before);
    const crelm::util::LineRewrite prefix_x{[](std::string_view line, std::string& replaced) {
        replaced = "x" + std::string(line);
        return crelm::util::LineFate::replace;
    }, "", {}};
    const auto printed = printed_by([&] { EXPECT_EQ(edit_lines_locked(path_, prefix_x), -1); });
    expect_reported(with_temporary_names_masked(printed),
                    with_system_error("Unable to write data into file " + path_ +
                                          ".tmp.XXXXXX: No space left on device\n", ENOSPC));
    EXPECT_EQ(read_file(path_), before);
    EXPECT_EQ(entries(), (std::vector<std::string>{"filler", "rcpthosts"}));
}

TEST_F(FullDiskTest, AnAtomicCopyLeavesTheOldDestination) {
    const std::string source = dir_ + "/source";
    write_file(source, almost_a_page() + almost_a_page());
    write_file(path_, "old\n");
    const auto printed = printed_by([&] { EXPECT_EQ(copy_file_atomic(source, path_, 0, 0, 0644), 1); });
    expect_reported(printed,
                    with_system_error("copy_file_atomic(): write_fd_to_fd failed: No space left on device", ENOSPC));
    EXPECT_EQ(read_file(path_), "old\n");
    EXPECT_EQ(entries(), (std::vector<std::string>{"filler", "rcpthosts"}));
}

TEST_F(FullDiskTest, ADirectoryReachedByAPathHandleCanBeFlushed) {
    const int handle = ::open(disk_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    ASSERT_GE(handle, 0);
    EXPECT_EQ(crelm::util::sync_directory(handle), 0);
    ::close(handle);
    EXPECT_EQ(crelm::util::sync_directory(-1), -1);
    EXPECT_EQ(errno, EBADF);
}

}  // namespace
}  // namespace sorvane::test
