// A log line or a report between a failing call and the next report of the
// same failure leaves errno alone, even when writing them fails, so that
// "System error N" names the failing call.
#include <syslog.h>
#include <unistd.h>

#include <cerrno>

#include "runtime/child.h"
#include "runtime/log.h"
#include "support/sandbox.h"

namespace sorvane::test {
namespace {

// The child's status: 0 when errno is still ENOSPC, else 100 + errno.
int errno_still_enospc() {
    return errno == ENOSPC ? 0 : 100 + errno;
}

using ErrnoKeptTest = SandboxTest;

TEST_F(ErrnoKeptTest, ALogLineThatCannotBeWrittenToTheConsoleKeepsErrno) {
    const auto result = run_in_child([] {
        log_init("console", 6, LOG_MAIL, 0, "sorvane");
        ::close(STDOUT_FILENO);
        errno = ENOSPC;
        log_message(LOG_ERR, "Unable to write the file");
        return errno_still_enospc();
    });
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "Unable to write the file\n");
}

TEST_F(ErrnoKeptTest, ASecondReportOfTheSameFailureNamesTheSameCause) {
    const auto result = run_in_child([] {
        ::close(STDOUT_FILENO);
        errno = ENOSPC;
        report_error(0, 0, "Unable to write data into file /x");
        report_error(0, 0, "Unable to add record to /x");
        return errno_still_enospc();
    });
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err,
              "Unable to write data into file /x\nSystem error 28: No space left on device\n"
              "Unable to add record to /x\nSystem error 28: No space left on device\n");
}

}  // namespace
}  // namespace sorvane::test
