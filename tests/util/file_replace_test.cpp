// Replacing a whole small file in one step: content, owner and mode before
// the rename, links and FIFOs at its name, failures that leave it as it was.
#include "util/file_replace.h"

#include "util_test_support.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

namespace sorvane::test {
namespace {

using crelm::util::replace_file_locked;

class FileReplaceTest : public ScratchDirTest {
protected:
    std::string path() const { return dir_ + "/.qmail"; }

    static bool give_popuser(int fd) {
        return fchown(fd, popuser_uid(), popuser_gid()) == 0 && fchmod(fd, 0600) == 0;
    }

    std::vector<std::string> names() const {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(dir_))
            found.push_back(entry.path().filename());
        std::sort(found.begin(), found.end());
        return found;
    }
};

TEST_F(FileReplaceTest, TheEditSeesTheOldContentAndItsResultTakesItsPlaceOwnedAsFinishLeftIt) {
    write_file(path(), "&info@example.test\n", 0644);
    std::string seen;
    const auto edit = [&](std::string_view old) {
        seen = old;
        return std::optional<std::string>(std::string(old) + "| true\n");
    };
    EXPECT_EQ(replace_file_locked(path(), edit, give_popuser), 0);
    EXPECT_EQ(seen, "&info@example.test\n");
    EXPECT_EQ(read_file(path()), "&info@example.test\n| true\n");
    const FileInfo info = file_info(path());
    EXPECT_EQ(info.uid, popuser_uid());
    EXPECT_EQ(info.gid, popuser_gid());
    EXPECT_EQ(info.mode, 0600u);
    EXPECT_EQ(names(), std::vector<std::string>{".qmail"});
}

TEST_F(FileReplaceTest, AMissingFileIsEditedFromNothing) {
    std::string seen = "unset";
    const auto edit = [&](std::string_view old) {
        seen = old;
        return std::optional<std::string>("| true\n");
    };
    EXPECT_EQ(replace_file_locked(path(), edit, [](int) { return true; }), 0);
    EXPECT_EQ(seen, "");
    EXPECT_EQ(read_file(path()), "| true\n");
    EXPECT_EQ(file_info(path()).mode, 0600u);
}

TEST_F(FileReplaceTest, AFailingFinishOrARefusedEditLeavesTheFileAndNoTemporaryFile) {
    write_file(path(), "old\n", 0600);
    EXPECT_EQ(replace_file_locked(path(), std::string("new\n"), [](int) { return false; }), 1);
    EXPECT_EQ(replace_file_locked(
                  path(), [](std::string_view) { return std::optional<std::string>(); }, [](int) { return true; }),
              1);
    EXPECT_EQ(read_file(path()), "old\n");
    EXPECT_EQ(names(), std::vector<std::string>{".qmail"});
}

TEST_F(FileReplaceTest, AnEditRefusesALinkOrFifoAtTheNameAndLeavesItThere) {
    write_file(dir_ + "/victim", "victim\n");
    ASSERT_EQ(symlink((dir_ + "/victim").c_str(), path().c_str()), 0);
    const auto edit = [](std::string_view) { return std::optional<std::string>("| true\n"); };
    const auto printed = printed_by([&] { EXPECT_EQ(replace_file_locked(path(), edit, give_popuser), 1); });
    expect_reported(printed, with_system_error("Unable to read line from file: " + path() +
                                                   ": Too many levels of symbolic links\n",
                                               ELOOP));
    EXPECT_EQ(file_info(path()).type, 'l');
    EXPECT_EQ(read_file(dir_ + "/victim"), "victim\n");
    ASSERT_EQ(unlink(path().c_str()), 0);
    ASSERT_EQ(mkfifo(path().c_str(), 0600), 0);
    const auto fifo = printed_by([&] { EXPECT_EQ(replace_file_locked(path(), edit, give_popuser), 1); });
    expect_reported(fifo, with_system_error("Unable to open file " + path() + ": Invalid argument\n", EINVAL));
    EXPECT_EQ(file_info(path()).type, '?');  // the FIFO, left in place
}

TEST_F(FileReplaceTest, WholeContentReplacesALinkAtTheNameWithoutFollowingIt) {
    write_file(dir_ + "/victim", "victim\n");
    ASSERT_EQ(symlink((dir_ + "/victim").c_str(), path().c_str()), 0);
    EXPECT_EQ(replace_file_locked(path(), std::string("|bouncesaying 'no'\n"), give_popuser), 0);
    EXPECT_EQ(file_info(path()).type, 'f');
    EXPECT_EQ(read_file(path()), "|bouncesaying 'no'\n");
    EXPECT_EQ(read_file(dir_ + "/victim"), "victim\n");
}

TEST_F(FileReplaceTest, AStaleTemporaryFileOrALinkAtItsNameIsReplacedNotFollowed) {
    write_file(dir_ + "/victim", "victim\n");
    ASSERT_EQ(symlink((dir_ + "/victim").c_str(), (path() + ".tmp").c_str()), 0);
    EXPECT_EQ(replace_file_locked(path(), std::string("| true\n"), give_popuser), 0);
    EXPECT_EQ(read_file(path()), "| true\n");
    EXPECT_EQ(read_file(dir_ + "/victim"), "victim\n");
    EXPECT_EQ(names(), (std::vector<std::string>{".qmail", "victim"}));
}

// A memory file holding text, read from its start.
int source_holding(const std::string& text) {
    const int fd = memfd_create("file-replace-test", MFD_CLOEXEC);
    EXPECT_EQ(write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    EXPECT_EQ(lseek(fd, 0, SEEK_SET), 0);
    return fd;
}

TEST_F(FileReplaceTest, ContentFromADescriptorReplacesTheFileWhateverItsSize) {
    write_file(path(), "old\n", 0644);
    std::string large;
    for (int i = 0; i < 100000; ++i)
        large += "=example.test-user" + std::to_string(i) + ":popuser:2110:2110:/home:::\n";
    const int source = source_holding(large);
    EXPECT_EQ(crelm::util::replace_file_locked_from(path(), source, give_popuser), 0);
    close(source);
    EXPECT_EQ(read_file(path()), large);
    EXPECT_EQ(file_info(path()).mode, 0600u);
    EXPECT_EQ(names(), std::vector<std::string>{".qmail"});
}

TEST_F(FileReplaceTest, ASourceThatCannotBeReadLeavesTheFileAndNoTemporaryFile) {
    write_file(path(), "old\n", 0644);
    const int source = open("/dev/null", O_WRONLY | O_CLOEXEC);
    const auto printed =
        printed_by([&] { EXPECT_EQ(crelm::util::replace_file_locked_from(path(), source, give_popuser), 1); });
    close(source);
    expect_reported(printed,
                    with_system_error("Unable to write data into file " + path() + ": Bad file descriptor\n", EBADF));
    EXPECT_EQ(read_file(path()), "old\n");
    EXPECT_EQ(names(), std::vector<std::string>{".qmail"});
}

}  // namespace
}  // namespace sorvane::test
