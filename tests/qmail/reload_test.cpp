#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "qmail/delivery.h"
#include "qmail/qmail_test_support.h"

namespace sorvane::test {
namespace {

using ReloadTest = QmailTest;

TEST_F(ReloadTest, QmailNewuRunsWithoutArgumentsAndGivesItsStatus) {
    EXPECT_EQ(qmail_newu(), 0);
    set_fake_status("qmail-newu", 111);
    EXPECT_EQ(qmail_newu(), 111);
    EXPECT_EQ(fake_calls("qmail-newu"), (std::vector<std::string>{"", ""}));
    EXPECT_TRUE(fake_calls("killall").empty());
}

TEST_F(ReloadTest, QmailNewuThatCannotRunIsMinusOne) {
    ASSERT_EQ(unlink("/var/qmail/bin/qmail-newu"), 0);
    EXPECT_EQ(qmail_newu(), 127);
    install_program("/var/qmail/bin/qmail-newu", "#!/bin/sh\nkill -9 $$\n");
    EXPECT_EQ(qmail_newu(), -1);
}

TEST_F(ReloadTest, ReloadSendsHangupToQmailSend) {
    EXPECT_EQ(reload_qmail_send(), 0);
    EXPECT_EQ(fake_calls("killall"), std::vector<std::string>{"-1 qmail-send"});
    EXPECT_TRUE(fake_calls("crelmrc").empty());
    EXPECT_TRUE(logged().empty());
}

TEST_F(ReloadTest, FailedReloadFallsBackToTheRestart) {
    set_fake_status("killall", 1);
    EXPECT_EQ(reload_qmail_send(), 0);
    EXPECT_EQ(fake_calls("killall"), std::vector<std::string>{"-1 qmail-send"});
    EXPECT_EQ(fake_calls("crelmrc"), std::vector<std::string>{"qmail restart"});
    EXPECT_EQ(logged(), std::vector<std::string>{"6 Reload of qmail-send failed, performing full restart"});
}

TEST_F(ReloadTest, FailedReloadGivesTheRestartsResult) {
    set_fake_status("killall", 1);
    set_fake_status("crelmrc", 3);
    EXPECT_EQ(reload_qmail_send(), 3);
    EXPECT_EQ(fake_calls("crelmrc"), std::vector<std::string>{"qmail restart"});
}

TEST_F(ReloadTest, RestartRunsTheServiceHelper) {
    EXPECT_EQ(restart_qmail(), 0);
    set_fake_status("crelmrc", 2);
    EXPECT_EQ(restart_qmail(), 2);
    EXPECT_EQ(fake_calls("crelmrc"), (std::vector<std::string>{"qmail restart", "qmail restart"}));
    EXPECT_TRUE(fake_calls("killall").empty());
}

TEST_F(ReloadTest, RebuildThenReloadInThatOrder) {
    // One record of every program, in the order the calls were made.
    const std::string shared = "printf '%s\\n' \"$0\" >> /tmp/.sandbox/fakes/order\n";
    install_fake("/var/qmail/bin/qmail-newu", shared);
    install_fake("/usr/bin/killall", shared + "exit 1\n");
    install_fake("/opt/qvt/admin/sbin/crelmrc", shared);
    ASSERT_EQ(qmail_newu(), 0);
    ASSERT_EQ(reload_qmail_send(), 0);
    EXPECT_EQ(read_file("/tmp/.sandbox/fakes/order"),
              "/var/qmail/bin/qmail-newu\n/usr/bin/killall\n/opt/qvt/admin/sbin/crelmrc\n");
}

TEST_F(ReloadTest, QmailNewuRunsOneAtATimeAcrossProcesses) {
    // The fake marks its run with a directory: finding the mark already
    // there means another run overlaps this one.
    install_fake("/var/qmail/bin/qmail-newu",
                 "if mkdir /tmp/newu-running 2>/dev/null; then\n"
                 "  sleep 0.02\n"
                 "  rmdir /tmp/newu-running\n"
                 "else\n"
                 "  echo overlap >> /tmp/newu-overlaps\n"
                 "fi\n");
    constexpr int kProcesses = 4;
    constexpr int kRuns = 10;
    std::vector<pid_t> children;
    for (int i = 0; i < kProcesses; ++i) {
        const pid_t pid = fork();
        if (pid == 0) {
            int failures = 0;
            for (int run = 0; run < kRuns; ++run)
                failures += qmail_newu() != 0;
            _exit(failures);
        }
        children.push_back(pid);
    }
    for (const pid_t pid : children) {
        int status = 0;
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    // Calls that waited while a rebuild begun after them completed share it:
    // at most one run per call, never two at once.
    EXPECT_GE(fake_calls("qmail-newu").size(), 1u);
    EXPECT_LE(fake_calls("qmail-newu").size(), static_cast<std::size_t>(kProcesses * kRuns));
    EXPECT_FALSE(path_exists("/tmp/newu-overlaps")) << read_file("/tmp/newu-overlaps");
}

}  // namespace
}  // namespace sorvane::test
