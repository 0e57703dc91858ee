#include "util/staged_directory.h"

#include "printed.h"
#include "support/sandbox.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

namespace {

using sorvane::test::read_file;
using sorvane::test::write_file;

class StagedDirectoryTest : public sorvane::test::SandboxTest {
protected:
    void SetUp() override {
        sorvane::test::SandboxTest::SetUp();
        // A mount that propagates to its peers, as "/" does on most systems:
        // a mount below it in another namespace would show here unless
        // that namespace stops the propagation.
        shared_ = sorvane::test::scratch_dir() + "/shared";
        std::filesystem::create_directories(shared_);
        ASSERT_EQ(mount("tmpfs", shared_.c_str(), "tmpfs", 0, "mode=0755"), 0);
        ASSERT_EQ(mount(nullptr, shared_.c_str(), nullptr, MS_SHARED, nullptr), 0);
        dir_ = shared_ + "/staged";
        std::filesystem::create_directories(dir_ + "/sub");
        write_file(dir_ + "/edited", "old\n", 0640);
        ASSERT_EQ(chown((dir_ + "/edited").c_str(), 2110, 2110), 0);
        write_file(dir_ + "/other", "other\n");
        write_file(dir_ + "/sub/inside", "inside\n");
        ASSERT_EQ(symlink("other", (dir_ + "/link").c_str()), 0);
    }
    void TearDown() override {
        umount2(shared_.c_str(), MNT_DETACH);
        sorvane::test::SandboxTest::TearDown();
    }
    std::string shared_;
    std::string dir_;
};

// Runs body in a forked process (whose mounts the test's process never
// sees); a check that fails there gives its number as the exit status.
int in_child(const std::function<int()>& body) {
    const pid_t pid = fork();
    if (pid == 0)
        _exit(body());
    return sorvane::test::reap(pid);
}

std::string content_at(int dir, const char* name) {
    const int fd = openat(dir, name, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return "(missing)";
    std::string text(4096, '\0');
    const ssize_t got = read(fd, text.data(), text.size());
    close(fd);
    text.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
    return text;
}

TEST_F(StagedDirectoryTest, TheNamedFilesAreCopiesAndEverythingElseIsTheRealEntry) {
    const std::string dir = dir_;
    EXPECT_EQ(in_child([dir] {
                  crelm::util::StagedDirectory staged;
                  if (crelm::util::enter_private_mount_namespace() != 0)
                      return 1;
                  if (crelm::util::stage_directory(dir, {"edited", "missing"}, staged) != 0)
                      return 2;
                  struct stat info {};
                  if (stat((dir + "/edited").c_str(), &info) != 0 || info.st_uid != 2110 || (info.st_mode & 07777) != 0640)
                      return 3;
                  std::ofstream(dir + "/edited", std::ios::app) << "new\n";
                  std::ofstream(dir + "/other", std::ios::app) << "written through\n";
                  std::ofstream(dir + "/sub/inside", std::ios::app) << "written through\n";
                  std::ofstream(dir + "/missing") << "made in the copy\n";
                  if (readlink((dir + "/link").c_str(), std::array<char, 16>{}.data(), 16) != 5)
                      return 4;
                  if (crelm::util::unstage_directory(staged) != 0)
                      return 5;
                  // The copies stay readable through the handle.
                  if (content_at(staged.copy.get(), "edited") != "old\nnew\n" ||
                      content_at(staged.copy.get(), "missing") != "made in the copy\n")
                      return 6;
                  return 0;
              }),
              0);
    EXPECT_EQ(read_file(dir_ + "/edited"), "old\n");
    EXPECT_EQ(read_file(dir_ + "/other"), "other\nwritten through\n");
    EXPECT_EQ(read_file(dir_ + "/sub/inside"), "inside\nwritten through\n");
    EXPECT_FALSE(sorvane::test::path_exists(dir_ + "/missing"));
}

TEST_F(StagedDirectoryTest, ANamedEntryThatIsNotARegularFileIsMissingInTheCopy) {
    const std::string dir = dir_;
    ASSERT_EQ(mkfifo((dir_ + "/fifo").c_str(), 0600), 0);
    EXPECT_EQ(in_child([dir] {
                  crelm::util::StagedDirectory staged;
                  if (crelm::util::enter_private_mount_namespace() != 0 ||
                      crelm::util::stage_directory(dir, {"fifo", "link"}, staged) != 0)
                      return 1;
                  struct stat info {};
                  return lstat((dir + "/fifo").c_str(), &info) != 0 && errno == ENOENT &&
                                 lstat((dir + "/link").c_str(), &info) == 0 && S_ISLNK(info.st_mode)
                             ? 0
                             : 2;
              }),
              0);
}

TEST_F(StagedDirectoryTest, NothingOfTheStagingShowsInTheProcessThatDidNotMakeIt) {
    const std::string before = read_file("/proc/self/mountinfo");
    const std::string dir = dir_;
    EXPECT_EQ(in_child([dir] {
                  crelm::util::StagedDirectory staged;
                  return crelm::util::enter_private_mount_namespace() == 0 &&
                                 crelm::util::stage_directory(dir, {"edited"}, staged) == 0
                             ? 0
                             : 1;
              }),
              0);
    EXPECT_EQ(read_file("/proc/self/mountinfo"), before);
    EXPECT_EQ(read_file(dir_ + "/edited"), "old\n");
}

TEST_F(StagedDirectoryTest, AMissingDirectoryIsNotStaged) {
    EXPECT_EQ(in_child([] {
                  crelm::util::StagedDirectory staged;
                  if (crelm::util::enter_private_mount_namespace() != 0)
                      return 1;
                  return crelm::util::stage_directory("/nonexistent/dir", {"x"}, staged) == -1 && !staged.mounted ? 0 : 2;
              }),
              0);
}

}  // namespace
