#include "util/sed_edit.h"

#include "util_test_support.h"

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace sorvane::test {
namespace {

class SedEditTest : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        path_ = "/var/qmail/control/virtualdomains";
        write_file(path_, "old.example:old.example\nother:other\n", 0640);
        chown(path_.c_str(), popuser_uid(), popuser_gid());
    }
    std::string path_;
};

TEST_F(SedEditTest, SubstitutionReplacesTheFileAndKeepsItsAttributes) {
    EXPECT_EQ(run_sed_on_file({"-e", "s/^old\\.example:/new.example:/"}, path_), 0);
    EXPECT_EQ(read_file(path_), "new.example:old.example\nother:other\n");
    const auto info = file_info(path_);
    EXPECT_EQ(info.mode, 0640U);
    EXPECT_EQ(info.uid, popuser_uid());
    EXPECT_EQ(info.gid, popuser_gid());
    EXPECT_EQ(sorvane::test::temporaries_beside(path_), std::vector<std::string>{});
}

TEST_F(SedEditTest, FailingSedLeavesTheFileUnchangedAndNoTemporaryFile) {
    install_fake("/bin/sed");
    set_fake_status("sed", 1);
    const std::string before = read_file(path_);
    const auto printed = printed_by([&] { EXPECT_EQ(run_sed_on_file({"-e", "s/a/b/"}, path_), -1); });
    expect_reported(printed, "Error during sed working\n");
    EXPECT_EQ(fake_calls("sed"), std::vector<std::string>{"-e s/a/b/"});
    EXPECT_EQ(read_file(path_), before);
    EXPECT_EQ(file_info(path_).mode, 0640U);
    EXPECT_EQ(sorvane::test::temporaries_beside(path_), std::vector<std::string>{});
}

TEST_F(SedEditTest, SedsOwnComplaintIsRelayedBeforeTheFailure) {
    const auto printed = printed_by([&] { EXPECT_EQ(run_sed_on_file({"-e", "s/unterminated"}, path_), -1); });
    EXPECT_EQ(printed.out, "/bin/sed: -e expression #1, char 14: unterminated `s' command\nError during sed working\n");
    EXPECT_EQ(sorvane::test::temporaries_beside(path_), std::vector<std::string>{});
}

TEST_F(SedEditTest, MissingFileCannotHaveItsAttributesSaved) {
    const std::string missing = "/var/qmail/control/missing";
    const auto printed = printed_by([&] { EXPECT_EQ(run_sed_on_file({"-e", "p"}, missing), -1); });
    expect_reported(printed,
                    with_system_error(
                        "ERROR: Unable to save file '" + missing + "' attributes : No such file or directory", ENOENT));
    EXPECT_EQ(sorvane::test::temporaries_beside(missing), std::vector<std::string>{});
}

TEST_F(SedEditTest, ALinkAtThePathIsNotReadThrough) {
    const std::string link = "/var/qmail/control/locals";
    ASSERT_EQ(symlink("/etc/passwd", link.c_str()), 0);
    const std::string before = read_file("/etc/passwd");
    const auto printed = printed_by([&] { EXPECT_EQ(run_sed_on_file({"-e", "s/root/toor/"}, link), -1); });
    expect_reported(printed, with_system_error("ERROR: Unable to open file " + link +
                                                   " for reading: Too many levels of symbolic links",
                                               ELOOP));
    EXPECT_EQ(read_file("/etc/passwd"), before);
    EXPECT_EQ(file_info(link).type, 'l');
}

TEST_F(SedEditTest, ALinkPlantedAtAnOldTemporaryNameIsRemovedNotFollowed) {
    const std::string before = read_file("/etc/passwd");
    ASSERT_EQ(symlink("/etc/passwd", (path_ + ".tmp").c_str()), 0);
    ASSERT_EQ(symlink("/etc/passwd", (path_ + ".tmp.AbC123").c_str()), 0);
    EXPECT_EQ(run_sed_on_file({"-e", "s/other/else/g"}, path_), 0);
    EXPECT_EQ(read_file(path_), "old.example:old.example\nelse:else\n");
    EXPECT_EQ(read_file("/etc/passwd"), before);
    EXPECT_EQ(sorvane::test::temporaries_beside(path_), std::vector<std::string>{});
}

// A path that fits a 4096-byte buffer only without ".tmp".
std::string deep_path_of_length(std::size_t length) {
    std::string path = scratch_dir();
    while (path.size() + 201 < length - 10) {
        path += "/" + std::string(200, 'd');
        mkdir(path.c_str(), 0755);
    }
    path += "/" + std::string(length - path.size() - 1, 'f');
    return path;
}

TEST_F(SedEditTest, TemporaryNameThatDoesNotFitThePathBufferIsRefused) {
    const std::string path = deep_path_of_length(4092);
    ASSERT_EQ(path.size(), 4092U);
    write_file(path, "x\n");
    const auto printed = printed_by([&] { EXPECT_EQ(run_sed_on_file({"-e", "s/x/y/"}, path), -1); });
    expect_reported(printed,
                    with_system_error("ERROR: Unable to truncate or create file " + path + ".tmp: File name too long",
                                      ENAMETOOLONG));
    EXPECT_EQ(read_file(path), "x\n");
}

}  // namespace

namespace {

TEST_F(SedEditTest, AFileThatCannotBeReplacedIsLeftAsItWas) {
    write_file("/tmp/pinned", "old.example:old.example\n");
    ASSERT_EQ(mount("/tmp/pinned", path_.c_str(), nullptr, MS_BIND, nullptr), 0);
    const auto printed = printed_by([&] { EXPECT_EQ(run_sed_on_file({"-e", "s/old/new/g"}, path_), -1); });
    expect_reported(with_temporary_names_masked(printed),
                    with_system_error("Unable to rename '" + path_ + ".tmp.XXXXXX' to '" + path_ +
                                          "' file: Device or resource busy", EBUSY));
    EXPECT_EQ(read_file(path_), "old.example:old.example\n");
    EXPECT_EQ(sorvane::test::temporaries_beside(path_), std::vector<std::string>{});
    umount2(path_.c_str(), MNT_DETACH);
}

}  // namespace

}  // namespace sorvane::test
