#include "util/owner_mode.h"

#include "util/file_create.h"
#include "util_test_support.h"

#include <sys/stat.h>
#include <unistd.h>

namespace sorvane::test {
namespace {

class OwnerModeTest : public ScratchDirTest {};

TEST_F(OwnerModeTest, SetsOwnerGroupAndMode) {
    write_file(dir_ + "/f", "x", 0644);
    EXPECT_EQ(set_owner_mode(dir_ + "/f", popuser_uid(), nofiles_gid(), 0600), 0);
    const auto info = file_info(dir_ + "/f");
    EXPECT_EQ(info.uid, popuser_uid());
    EXPECT_EQ(info.gid, nofiles_gid());
    EXPECT_EQ(info.mode, 0600U);
}

TEST_F(OwnerModeTest, WorksOnDirectories) {
    ASSERT_EQ(mkdir((dir_ + "/d").c_str(), 0755), 0);
    EXPECT_EQ(set_owner_mode(dir_ + "/d", popuser_uid(), popuser_gid(), 0700), 0);
    EXPECT_EQ(file_info(dir_ + "/d").mode, 0700U);
    EXPECT_EQ(file_info(dir_ + "/d").uid, popuser_uid());
}

TEST_F(OwnerModeTest, MissingPathFailsAtChown) {
    const auto printed = printed_by([&] { EXPECT_EQ(set_owner_mode(dir_ + "/none", 0, 0, 0600), -1); });
    expect_reported(printed,
                    with_system_error("ERROR: unable to chown " + dir_ + "/none: No such file or directory\n", ENOENT));
}

TEST_F(OwnerModeTest, MissingPathIsFineWhenOnlyIfItExists) {
    const auto printed = printed_by([&] { EXPECT_EQ(set_owner_mode_if_exists(dir_ + "/none", 0, 0, 0600), 0); });
    EXPECT_EQ(printed.out, "");
    EXPECT_FALSE(path_exists(dir_ + "/none"));
}

TEST_F(OwnerModeTest, IfExistsChangesAnExistingFile) {
    write_file(dir_ + "/f", "x", 0644);
    EXPECT_EQ(set_owner_mode_if_exists(dir_ + "/f", popuser_uid(), 0, 0640), 0);
    EXPECT_EQ(file_info(dir_ + "/f").mode, 0640U);
    EXPECT_EQ(file_info(dir_ + "/f").uid, popuser_uid());
}

TEST_F(OwnerModeTest, ByUserTakesTheUsersIdsFromItsPasswordEntry) {
    write_file(dir_ + "/f", "x", 0644);
    EXPECT_EQ(set_owner_mode_by_user(dir_ + "/f", "popuser", 0600), 0);
    const auto info = file_info(dir_ + "/f");
    EXPECT_EQ(info.uid, popuser_uid());
    EXPECT_EQ(info.gid, popuser_gid());
    EXPECT_EQ(info.mode, 0600U);
}

TEST_F(OwnerModeTest, ByUserWithAnUnknownUserFails) {
    write_file(dir_ + "/f", "x", 0644);
    const auto printed = printed_by([&] { EXPECT_EQ(set_owner_mode_by_user(dir_ + "/f", "no-such-user", 0600), -1); });
    expect_reported(printed, "user no-such-user not found\n");
    EXPECT_EQ(file_info(dir_ + "/f").mode, 0644U);
}

TEST_F(OwnerModeTest, ALinkIsRefusedAndItsTargetUntouched) {
    ASSERT_EQ(symlink("/etc/passwd", (dir_ + "/link").c_str()), 0);
    const auto target_before = file_info("/etc/passwd");
    for (auto* change : {set_owner_mode, set_owner_mode_if_exists}) {
        const auto printed = printed_by([&] {
            EXPECT_EQ(change(dir_ + "/link", popuser_uid(), popuser_gid(), 0666), -1);
        });
        expect_reported(
            printed,
            with_system_error("ERROR: unable to chown " + dir_ + "/link: Too many levels of symbolic links\n", ELOOP));
    }
    const auto target_after = file_info("/etc/passwd");
    EXPECT_EQ(target_after.uid, target_before.uid);
    EXPECT_EQ(target_after.mode, target_before.mode);
}

TEST_F(OwnerModeTest, TruncateEmptiesOrCreates) {
    write_file(dir_ + "/full", "data\n", 0600);
    EXPECT_EQ(truncate_file(dir_ + "/full"), 0);
    EXPECT_EQ(read_file(dir_ + "/full"), "");
    EXPECT_EQ(file_info(dir_ + "/full").mode, 0600U);
    EXPECT_EQ(truncate_file(dir_ + "/new"), 0);
    EXPECT_EQ(read_file(dir_ + "/new"), "");
    EXPECT_EQ(file_info(dir_ + "/new").mode, 0644U);
}

TEST_F(OwnerModeTest, CreateKeepsAnExistingFilesContents) {
    write_file(dir_ + "/full", "data\n", 0600);
    EXPECT_EQ(create_file(dir_ + "/full"), 0);
    EXPECT_EQ(read_file(dir_ + "/full"), "data\n");
    EXPECT_EQ(create_file(dir_ + "/new"), 0);
    EXPECT_EQ(file_info(dir_ + "/new").mode, 0644U);
}

TEST_F(OwnerModeTest, TruncateAndCreateFailuresAreReported) {
    const auto printed = printed_by([&] {
        EXPECT_EQ(truncate_file(dir_ + "/no/f"), -1);
        EXPECT_EQ(create_file(dir_ + "/no/f"), -1);
    });
    expect_reported(
        printed,
        with_system_error("Unable to truncate or create file " + dir_ + "/no/f: No such file or directory\n", ENOENT) +
            with_system_error("Unable to create file " + dir_ + "/no/f: No such file or directory\n", ENOENT));
}

TEST_F(OwnerModeTest, TruncateAndCreateNeverWriteThroughALink) {
    const std::string before = read_file("/etc/passwd");
    ASSERT_EQ(symlink("/etc/passwd", (dir_ + "/link").c_str()), 0);
    const auto printed = printed_by([&] {
        EXPECT_EQ(truncate_file(dir_ + "/link"), -1);
        EXPECT_EQ(create_file(dir_ + "/link"), -1);
    });
    EXPECT_NE(printed.out.find("Too many levels of symbolic links"), std::string::npos);
    EXPECT_EQ(read_file("/etc/passwd"), before);
}

}  // namespace

}  // namespace sorvane::test
