// The test sandbox itself: fresh trees, accounts, recording fakes, process
// control.
#include <pwd.h>
#include <grp.h>
#include <unistd.h>

#include "support/sandbox.h"

namespace sorvane::test {
namespace {

class SandboxSelfTest : public SandboxTest {};

TEST_F(SandboxSelfTest, TreesStartFreshWithAssignHoldingTheFinalDot) {
    EXPECT_EQ(read_file("/var/qmail/users/assign"), ".\n");
    EXPECT_TRUE(list_tree("/etc/domainkeys").empty());
    EXPECT_TRUE(list_tree("/etc/qvt").empty());
    EXPECT_TRUE(list_tree("/run").empty());
    write_file("/etc/qvt/leftover", "x");
    reset_sandbox();
    EXPECT_FALSE(path_exists("/etc/qvt/leftover"));
}

TEST_F(SandboxSelfTest, PopuserAndNofilesExist) {
    const passwd* user = getpwnam("popuser");
    ASSERT_NE(user, nullptr);
    EXPECT_EQ(user->pw_uid, popuser_uid());
    EXPECT_NE(user->pw_uid, 0u);
    const group* pop = getgrnam("popuser");
    ASSERT_NE(pop, nullptr);
    EXPECT_EQ(pop->gr_gid, popuser_gid());
    const group* nofiles = getgrnam("nofiles");
    ASSERT_NE(nofiles, nullptr);
    EXPECT_EQ(nofiles->gr_gid, nofiles_gid());
}

TEST_F(SandboxSelfTest, FakesRecordTheirArgumentsAndGiveTheChosenStatus) {
    EXPECT_EQ(run_process({"/usr/bin/killall", "-HUP", "qmail-send"}).status, 0);
    EXPECT_EQ(run_process({"/opt/qvt/admin/sbin/crelmrc", "qmail", "restart"}).status, 0);
    set_fake_status("crelmrc", 3);
    EXPECT_EQ(run_process({"/opt/qvt/admin/sbin/crelmrc", "qmail", "start"}).status, 3);
    EXPECT_EQ(fake_calls("killall"), std::vector<std::string>{"-HUP qmail-send"});
    EXPECT_EQ(fake_calls("crelmrc"), (std::vector<std::string>{"qmail restart", "qmail start"}));
}

TEST_F(SandboxSelfTest, FakeQmailNewuAcceptsAWellFormedAssign) {
    write_file("/var/qmail/users/assign", "=info-example.test:popuser:2110:2110:/var/qmail/mailnames/example.test/info:::\n.\n");
    EXPECT_EQ(run_process({"/var/qmail/bin/qmail-newu"}).status, 0);
    EXPECT_EQ(fake_calls("qmail-newu"), std::vector<std::string>{""});
}

TEST_F(SandboxSelfTest, FakeQmailNewuRefusesWhatTheRealOneRefuses) {
    EXPECT_EQ(run_process({"/var/qmail/bin/qmail-newu"}).status, 0);
    for (const char* content : {"", "=a:b:1:2:/x:::\n", ".", "garbage\n.\n", "=a:b:x:2:/x:::\n.\n", ".\n.\n=a:b:1:2:/x:::\n"}) {
        write_file("/var/qmail/users/assign", content);
        EXPECT_EQ(run_process({"/var/qmail/bin/qmail-newu"}).status, 111) << content;
    }
    unlink("/var/qmail/users/assign");
    EXPECT_EQ(run_process({"/var/qmail/bin/qmail-newu"}).status, 111);
}

TEST_F(SandboxSelfTest, ProgramsCanBePlacedAtMissingPathsOutsideTheTrees) {
    ASSERT_FALSE(path_exists("/usr/bin/sorvane-server"));
    install_program("/usr/bin/sorvane-server", "#!/bin/sh\necho features\n");
    const auto result = run_process({"/usr/bin/sorvane-server"});
    EXPECT_EQ(result.out, "features\n");
    // The rest of the directory is still there.
    EXPECT_TRUE(path_exists("/usr/bin/env"));
}

TEST_F(SandboxSelfTest, FakesCanReplaceExistingPrograms) {
    install_fake("/bin/sed");
    set_fake_status("sed", 4);
    EXPECT_EQ(run_process({"/bin/sed", "-e", "s/a/b/"}).status, 4);
    EXPECT_EQ(fake_calls("sed"), std::vector<std::string>{"-e s/a/b/"});
}

TEST_F(SandboxSelfTest, StandardInputCanBeClosedAPipeOrWrittenAfterOutput) {
    const std::string probe = "if read line; then echo \"got $line\"; else echo none; fi";
    RunOptions closed;
    closed.stdin_mode = RunOptions::Stdin::Closed;
    EXPECT_EQ(run_process({"/bin/sh", "-c", probe + " 2>/dev/null"}, closed).out, "none\n");
    RunOptions piped;
    piped.stdin_mode = RunOptions::Stdin::Pipe;
    piped.input = "data\n";
    EXPECT_EQ(run_process({"/bin/sh", "-c", probe}, piped).out, "got data\n");
    RunOptions later = piped;
    later.input_after_output = "ready";
    const auto result = run_process({"/bin/sh", "-c", "echo ready; " + probe}, later);
    EXPECT_EQ(result.out, "ready\ngot data\n");
}

TEST_F(SandboxSelfTest, ExitStatusOutputAndErrorAreSeparate) {
    const auto result = run_process({"/bin/sh", "-c", "echo out; echo err >&2; exit 5"});
    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(result.out, "out\n");
    EXPECT_EQ(result.err, "err\n");
}

TEST_F(SandboxSelfTest, TestProgramsRefuseToRunOutsideTheSandbox) {
    RunOptions options;
    options.unset_env = {"SORVANE_SANDBOX"};
    const auto result = run_process({"/proc/self/exe"}, options);
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.err.find("refusing to run outside the test sandbox"), std::string::npos) << result.err;
    EXPECT_NE(result.err.find("tests/sandbox/run-tests <build-dir>"), std::string::npos);
}

}  // namespace
}  // namespace sorvane::test
