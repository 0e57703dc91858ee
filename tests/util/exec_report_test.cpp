#include "util/process.h"

#include "util_test_support.h"

namespace sorvane::test {
namespace {

class ExecReportTest : public SandboxTest {};

TEST_F(ExecReportTest, SuccessPrintsNothing) {
    const auto printed = printed_by([] { EXPECT_EQ(exec_report("/bin/sh", {"/bin/sh", "-c", "echo fine"}), 0); });
    EXPECT_EQ(printed.out, "");
    EXPECT_EQ(printed.err, "");
}

TEST_F(ExecReportTest, FailurePrintsTheOutputAndReportsTheErrorText) {
    const auto printed = printed_by([] {
        EXPECT_EQ(exec_report("/bin/sh", {"/bin/sh", "-c", "echo partial; echo broken >&2; exit 4"}), 4);
    });
    EXPECT_EQ(printed.err, "partial\n/bin/sh execution failed:\nbroken\n");
    EXPECT_EQ(printed.out, "/bin/sh execution failed:\nbroken\n");
}

TEST_F(ExecReportTest, FailureWithoutErrorTextSaysNoOutput) {
    const auto printed = printed_by([] { EXPECT_EQ(exec_report("/bin/sh", {"/bin/sh", "-c", "exit 2"}), 2); });
    expect_reported(printed, "/bin/sh execution failed (no output)\n");
}

TEST_F(ExecReportTest, QuietFailurePrintsNothing) {
    const auto printed = printed_by([] {
        EXPECT_EQ(exec_report("/bin/sh", {"/bin/sh", "-c", "echo x; echo y >&2; exit 3"}, FailureOutput::quiet), 3);
    });
    EXPECT_EQ(printed.out, "");
    EXPECT_EQ(printed.err, "");
}

TEST_F(ExecReportTest, UtilityNameWithASlashIsRefusedWithoutRunningAnything) {
    const auto printed = printed_by([] { EXPECT_EQ(exec_utility("sbin/crelmrc", {"qmail", "restart"}), -1); });
    expect_reported(printed,
                                   "Utility name 'sbin/crelmrc' is invalid. Use only utility name without path.\n");
    EXPECT_TRUE(fake_calls("crelmrc").empty());
}

TEST_F(ExecReportTest, UtilityRunsFromThePanelUtilityDirectory) {
    EXPECT_EQ(exec_utility("crelmrc", {"qmail", "restart"}), 0);
    EXPECT_EQ(fake_calls("crelmrc"), std::vector<std::string>{"qmail restart"});
}

TEST_F(ExecReportTest, FailingUtilityGivesItsExitCodeAndIsReported) {
    set_fake_status("crelmrc", 3);
    const auto printed = printed_by([] { EXPECT_EQ(exec_utility("crelmrc", {"qmail", "restart"}), 3); });
    expect_reported(printed, "/opt/qvt/admin/sbin/crelmrc execution failed (no output)\n");
}

}  // namespace

}  // namespace sorvane::test
