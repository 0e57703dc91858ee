// Lookups of the sandbox's users and groups, and their failure messages.
#include "runtime/system_users.h"

#include <cerrno>

#include "support/printed.h"
#include "support/sandbox.h"

namespace sorvane::test {
namespace {

class SystemUsersTest : public SandboxTest {};

TEST_F(SystemUsersTest, GetUserIdsFillsEveryRequestedOutput) {
    uid_t uid = 1;
    gid_t gid = 1;
    std::string home;
    EXPECT_EQ(get_user_ids("popuser", &uid, &gid, &home), 0);
    EXPECT_EQ(uid, popuser_uid());
    EXPECT_EQ(gid, popuser_gid());
    EXPECT_EQ(home, "/var/qmail/popuser");
}

TEST_F(SystemUsersTest, GetUserIdsAcceptsAbsentOutputs) {
    gid_t gid = 1;
    EXPECT_EQ(get_user_ids("popuser", nullptr, &gid, nullptr), 0);
    EXPECT_EQ(gid, popuser_gid());
    EXPECT_EQ(get_user_ids("root", nullptr, nullptr, nullptr), 0);
}

TEST_F(SystemUsersTest, GetUserIdsReportsAnUnknownUserAndLeavesOutputs) {
    uid_t uid = 77;
    int status = 0;
    const Printed printed = printed_by([&] { status = get_user_ids("nosuchuser", &uid, nullptr, nullptr); });
    EXPECT_EQ(status, -1);
    EXPECT_EQ(uid, 77u);
    EXPECT_EQ(printed.err, "Unable to getpwnam for user nosuchuser\n");
    EXPECT_EQ(printed.out, printed.err);
}

TEST_F(SystemUsersTest, UserIdOrGroupSelectsUidOrPrimaryGid) {
    EXPECT_EQ(get_user_id_or_group("popuser", UserIdKind::Uid), popuser_uid());
    EXPECT_EQ(get_user_id_or_group("popuser", UserIdKind::PrimaryGid), popuser_gid());
    unsigned id = 1;
    const Printed printed = printed_by([&] { id = get_user_id_or_group("ghost", UserIdKind::Uid); });
    EXPECT_EQ(id, 0u);
    EXPECT_EQ(printed.err, "Unable to getpwnam for user ghost\n");
}

TEST_F(SystemUsersTest, FindUidOfKnownAndUnknownUsers) {
    EXPECT_EQ(find_uid("popuser"), popuser_uid());
    EXPECT_EQ(find_uid("root"), 0u);
    uid_t uid = 1;
    const Printed printed = printed_by([&] { uid = find_uid("ghost"); });
    EXPECT_EQ(uid, 0u);
    EXPECT_EQ(printed.err, "Unable to find uid for user ghost: User not found\n");
    EXPECT_EQ(printed.out, printed.err);
}

TEST_F(SystemUsersTest, FindGroupByNameAndByNumber) {
    const auto by_name = find_group("nofiles");
    ASSERT_TRUE(by_name.has_value());
    EXPECT_EQ(by_name->gid, nofiles_gid());
    EXPECT_EQ(by_name->name, "nofiles");
    const auto by_number = find_group(std::to_string(popuser_gid()).c_str());
    ASSERT_TRUE(by_number.has_value());
    EXPECT_EQ(by_number->name, "popuser");
}

TEST_F(SystemUsersTest, FindGroupZeroLooksUpGroupIdZero) {
    const auto root = find_group("0");
    ASSERT_TRUE(root.has_value());
    EXPECT_EQ(root->gid, 0u);
    EXPECT_EQ(root->name, "root");
}

TEST_F(SystemUsersTest, FindGroupWithAnyNonDigitLooksUpByName) {
    std::optional<GroupEntry> entry;
    const Printed printed = printed_by([&] { entry = find_group("0a"); });
    EXPECT_FALSE(entry.has_value());
    EXPECT_EQ(printed.err, "getgrnam(0a): Group not found\n");
    EXPECT_EQ(printed.out, printed.err);
}

TEST_F(SystemUsersTest, FindGroupReportsAnUnknownGroupId) {
    std::optional<GroupEntry> entry;
    const Printed printed = printed_by([&] { entry = find_group("4242"); });
    EXPECT_FALSE(entry.has_value());
    EXPECT_EQ(printed.err, "getgrgid(4242): Group not found\n");
}

TEST_F(SystemUsersTest, FindGroupNumberPastTheIdRangeIsNoGroup) {
    std::optional<GroupEntry> entry;
    const Printed printed = printed_by([&] { entry = find_group("99999999999999999999"); });
    EXPECT_FALSE(entry.has_value());
    EXPECT_EQ(printed.err, "getgrgid(4294967295): Group not found\n");
}

TEST_F(SystemUsersTest, FindGroupOfEmptyOrAbsentNameIsSilent) {
    const Printed printed = printed_by([] {
        EXPECT_FALSE(find_group("").has_value());
        EXPECT_FALSE(find_group(nullptr).has_value());
    });
    EXPECT_EQ(printed.err, "");
    EXPECT_EQ(printed.out, "");
}

TEST_F(SystemUsersTest, FindGidTellsWhetherTheGroupExists) {
    bool found = false;
    EXPECT_EQ(find_gid("popuser", &found), popuser_gid());
    EXPECT_TRUE(found);
    EXPECT_EQ(find_gid("nofiles"), nofiles_gid());
    gid_t gid = 1;
    const Printed printed = printed_by([&] { gid = find_gid("nogroup-here", &found); });
    EXPECT_EQ(gid, 0u);
    EXPECT_FALSE(found);
    EXPECT_EQ(printed.err, "getgrnam(nogroup-here): Group not found\n");
}

TEST_F(SystemUsersTest, UserNameOfKnownUids) {
    EXPECT_EQ(user_name_of(popuser_uid()), "popuser");
    EXPECT_EQ(user_name_of(0), "root");
}

TEST_F(SystemUsersTest, UserNameOfUnknownUidIsTheNumber) {
    const Printed printed = printed_by([] { EXPECT_EQ(user_name_of(4242), "4242"); });
    EXPECT_EQ(printed.err, "");
}

}  // namespace
}  // namespace sorvane::test
