// The rebuild and reload a batch runs once: the marks its commands leave, and
// the shared run's output and failure given to each command that asked.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "commands/batch_rebuilds.h"
#include "qmail/delivery.h"
#include "util/unique_fd.h"

namespace crelm::mail::sorvane_commands {
namespace {

using crelm::qmail::RebuildKind;
using crelm::util::UniqueFd;

SharedRebuild failed_newu_and_reload() {
    SharedRebuild rebuild;
    rebuild.newu = {true, true, "", "qmail-newu: fatal\n"};
    rebuild.reload = {true, false, "restarted\n", "Reload of qmail-send failed, performing full restart\n"};
    return rebuild;
}

TEST(BatchRebuildsTest, EachMarkGetsItsRunsOutputWhereTheCommandAsked) {
    BatchOutcome outcome{0, "before|after", "one\ntwo\n", {}};
    const std::vector<RebuildMark> marks = {{RebuildKind::newu, 7, 4}, {RebuildKind::reload, 7, 4},
                                            {RebuildKind::newu, 12, 8}};
    apply_shared_rebuild(failed_newu_and_reload(), marks, outcome);
    EXPECT_EQ(outcome.out, "before|restarted\nafter");
    EXPECT_EQ(outcome.err,
              "one\nqmail-newu: fatal\nReload of qmail-send failed, performing full restart\ntwo\nqmail-newu: fatal\n");
    EXPECT_EQ(outcome.status, 1) << "the failed rebuild fails a command that would have succeeded";
}

TEST(BatchRebuildsTest, AFailedRunLeavesAFailingStatusAsItWas) {
    BatchOutcome outcome{255, "", "", {}};
    apply_shared_rebuild(failed_newu_and_reload(), {{RebuildKind::newu, 0, 0}}, outcome);
    EXPECT_EQ(outcome.status, 255);
}

TEST(BatchRebuildsTest, ASucceededRunGivesItsOutputAndNoFailure) {
    BatchOutcome outcome{0, "", "x", {}};
    apply_shared_rebuild(failed_newu_and_reload(), {{RebuildKind::reload, 0, 1}}, outcome);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "restarted\n");
    EXPECT_EQ(outcome.err, "xReload of qmail-send failed, performing full restart\n");
}

TEST(BatchRebuildsTest, ACommandThatDidNotAskIsLeftAlone) {
    BatchOutcome outcome{0, "out", "err", {}};
    apply_shared_rebuild(failed_newu_and_reload(), {}, outcome);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "out");
    EXPECT_EQ(outcome.err, "err");
}

// In a child whose standard output and error are memory files, as a batch's
// command process has them: what it printed, then each deferred request.
TEST(BatchRebuildsTest, ADeferredRequestIsNotedWithHowFarEachStreamHadComeAndRunsNothing) {
    UniqueFd marks(::memfd_create("marks", MFD_CLOEXEC));
    ASSERT_TRUE(marks.valid());
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const int out = ::memfd_create("out", 0);
        const int err = ::memfd_create("err", 0);
        if (out < 0 || err < 0 || ::dup2(out, STDOUT_FILENO) < 0 || ::dup2(err, STDERR_FILENO) < 0)
            ::_exit(2);
        defer_rebuilds_into(marks.get());
        std::fputs("12345", stdout);  // buffered: the request flushes it first
        std::fputs("ab", stderr);
        const int newu = qmail_newu();
        std::fputs("c", stderr);
        const int reload = reload_qmail_send();
        ::_exit(newu == 0 && reload == 0 ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "a deferred request answers 0";
    std::vector<RebuildMark> noted;
    ASSERT_EQ(read_rebuild_marks(marks.get(), noted), 0);
    ASSERT_EQ(noted.size(), 2u);
    EXPECT_EQ(noted[0].kind, RebuildKind::newu);
    EXPECT_EQ(noted[0].out_offset, 5u);
    EXPECT_EQ(noted[0].err_offset, 2u);
    EXPECT_EQ(noted[1].kind, RebuildKind::reload);
    EXPECT_EQ(noted[1].out_offset, 5u);
    EXPECT_EQ(noted[1].err_offset, 3u);
}

}  // namespace
}  // namespace crelm::mail::sorvane_commands
