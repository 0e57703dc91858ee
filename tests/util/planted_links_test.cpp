// Links a mail user plants on the way to a path (owned by popuser) are never
// followed; links root made (the system's own) are.
#include "runtime/md5_hex.h"
#include "util/directories.h"
#include "util/file_copy.h"
#include "util/file_create.h"
#include "util/file_lock.h"
#include "util/file_str.h"
#include "util/owner_mode.h"
#include "util/line_edit.h"
#include "util/tree_walk.h"
#include "util_test_support.h"

#include <sys/stat.h>
#include <unistd.h>

namespace sorvane::test {
namespace {

const std::string kLoop = "Too many levels of symbolic links";

class PlantedLinksTest : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        home_ = "/var/qmail/mailnames/example.com/info";
        ASSERT_EQ(mkdir("/var/qmail/mailnames/example.com", 0700), 0);
        ASSERT_EQ(mkdir(home_.c_str(), 0700), 0);
        // The mail user swapped its Maildir for a link to the root directory.
        plant(home_ + "/Maildir", "/");
        tmp_before_ = file_info("/tmp");
        passwd_before_ = file_info("/etc/passwd");
    }

    static void plant(const std::string& at, const std::string& target) {
        ASSERT_EQ(symlink(target.c_str(), at.c_str()), 0);
        ASSERT_EQ(lchown(at.c_str(), popuser_uid(), popuser_gid()), 0);
    }

    void expect_system_untouched() {
        EXPECT_EQ(file_info("/tmp").uid, tmp_before_.uid);
        EXPECT_EQ(file_info("/tmp").mode, tmp_before_.mode);
        EXPECT_EQ(file_info("/etc/passwd").uid, passwd_before_.uid);
        EXPECT_EQ(file_info("/etc/passwd").mode, passwd_before_.mode);
    }

    std::string home_;
    FileInfo tmp_before_{};
    FileInfo passwd_before_{};
};

TEST_F(PlantedLinksTest, MakeDirOwnedDoesNotReachThroughALinkOnTheWay) {
    const std::string path = home_ + "/Maildir/tmp";
    const auto printed = printed_by(
        [&] { EXPECT_EQ(make_dir_owned(path, popuser_uid(), popuser_gid(), 0700), -1); });
    expect_reported(printed, with_system_error("ERROR: Unable to mkdir " + path + ": " + kLoop + "\n", ELOOP));
    expect_system_untouched();
}

TEST_F(PlantedLinksTest, SetOwnerModeDoesNotReachThroughALinkOnTheWay) {
    const std::string path = home_ + "/Maildir/etc/passwd";
    const auto printed = printed_by(
        [&] { EXPECT_EQ(set_owner_mode(path, popuser_uid(), popuser_gid(), 0666), -1); });
    expect_reported(printed, with_system_error("ERROR: unable to chown " + path + ": " + kLoop + "\n", ELOOP));
    expect_system_untouched();
}

TEST_F(PlantedLinksTest, TruncateDoesNotReachThroughALinkOnTheWay) {
    const std::string text = read_file("/etc/passwd");
    const auto printed = printed_by([&] { EXPECT_EQ(truncate_file(home_ + "/Maildir/etc/passwd"), -1); });
    EXPECT_NE(printed.out.find(kLoop), std::string::npos);
    EXPECT_EQ(read_file("/etc/passwd"), text);
}

TEST_F(PlantedLinksTest, MkdirPOwnedEndsTheProgramAtALinkOnTheWay) {
    const std::string path = home_ + "/Maildir/tmp/new";
    EXPECT_EXIT(mkdir_p_owned(path, popuser_uid(), popuser_gid(), 0700),
                ::testing::ExitedWithCode(1), "^Cannot create directory " + home_ + "/Maildir: " + kLoop);
    expect_system_untouched();
    EXPECT_FALSE(path_exists("/tmp/new"));
}

TEST_F(PlantedLinksTest, ChownTreeEndsTheProgramAtALinkOnTheWay) {
    const std::string path = home_ + "/Maildir/etc";
    EXPECT_EXIT(chown_tree(path, popuser_uid(), popuser_gid(), TopDirectory::change),
                ::testing::ExitedWithCode(1), "^Unable to get entry " + path + ": " + kLoop);
    expect_system_untouched();
}

TEST_F(PlantedLinksTest, RemoveTreeRefusesAPathThroughALink) {
    write_file("/tmp/victim/file", "v");
    const std::string path = home_ + "/Maildir/tmp/victim";
    const auto printed = printed_by([&] { EXPECT_EQ(remove_tree(path), 1); });
    expect_reported(printed, with_system_error("Unable to get entry " + path + ": " + kLoop + "\n", ELOOP));
    EXPECT_EQ(read_file("/tmp/victim/file"), "v");
}

TEST_F(PlantedLinksTest, LinksThatRootMadeAreFollowed) {
    ASSERT_EQ(mkdir("/tmp/real", 0755), 0);
    ASSERT_EQ(symlink("/tmp/real", "/tmp/system-link"), 0);
    EXPECT_EQ(make_dir_owned("/tmp/system-link/made", popuser_uid(), popuser_gid(), 0700),
              0);
    EXPECT_EQ(file_info("/tmp/real/made").uid, popuser_uid());
    write_file("/tmp/real/file", "x", 0644);
    EXPECT_EQ(set_owner_mode("/tmp/system-link/file", popuser_uid(), 0, 0600), 0);
    EXPECT_EQ(file_info("/tmp/real/file").mode, 0600U);
    EXPECT_EQ(mkdir_p_owned("/tmp/system-link/a/b", 0, 0, 0755), 0);
    EXPECT_TRUE(path_exists("/tmp/real/a/b"));
    EXPECT_EQ(remove_tree("/tmp/system-link/a"), 0);
    EXPECT_FALSE(path_exists("/tmp/real/a"));
}

}  // namespace

namespace {

TEST_F(PlantedLinksTest, LineEditorDoesNotReachThroughALinkOnTheWay) {
    const std::string text = read_file("/etc/passwd");
    const std::string path = home_ + "/Maildir/etc/passwd";
    const auto printed = printed_by([&] { EXPECT_EQ(file_str_one(path, "x", LineAction::add, LinePosition::end), 1); });
    expect_reported(printed, with_system_error("file_str: Unable to stat file " + path + ": " + kLoop + "\n", ELOOP));
    EXPECT_EQ(read_file("/etc/passwd"), text);
    EXPECT_FALSE(path_exists("/etc/passwd.tmp"));
}

TEST_F(PlantedLinksTest, WholeFileEditDoesNotReachThroughALinkOnTheWay) {
    const std::string text = read_file("/etc/passwd");
    const std::string path = home_ + "/Maildir/etc/passwd";
    const auto printed = printed_by([&] { EXPECT_EQ(edit_lines_locked(path, crelm::util::LineRewrite{[](std::string_view, std::string&) { return crelm::util::LineFate::drop; }, "", {}}), -1); });
    expect_reported(printed,
                    with_system_error("ERROR: Unable to save file '" + path + "' attributes : " + kLoop, ELOOP));
    EXPECT_EQ(read_file("/etc/passwd"), text);
}

TEST_F(PlantedLinksTest, CopyDoesNotWriteThroughALinkOnTheWay) {
    const std::string text = read_file("/etc/passwd");
    write_file("/tmp/source", "evil\n");
    const std::string path = home_ + "/Maildir/etc/passwd";
    const auto printed = printed_by([&] { EXPECT_EQ(copy_file("/tmp/source", path), 1); });
    expect_reported(printed, with_system_error("Unable to open file " + path + ": " + kLoop, ELOOP));
    EXPECT_EQ(read_file("/etc/passwd"), text);
}

}  // namespace

namespace {

TEST_F(PlantedLinksTest, AtomicCopyDoesNotWriteThroughALinkOnTheWay) {
    write_file("/tmp/source", "evil\n");
    const std::string path = home_ + "/Maildir/etc/passwd";
    const std::string text = read_file("/etc/passwd");
    const auto printed = printed_by([&] { EXPECT_EQ(copy_file_atomic("/tmp/source", path, 0, 0, 0644), 1); });
    expect_reported(printed, with_system_error("copy_file_atomic(): mkstemp failed: " + kLoop, ELOOP));
    EXPECT_EQ(read_file("/etc/passwd"), text);
}

}  // namespace

}  // namespace sorvane::test
