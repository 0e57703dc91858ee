// Waiting for a child process and reducing its end to one number.
//
// Every wait uses waitpid with WUNTRACED: a stopped child ends the wait and
// counts as a failure, so that a caller is never left blocked on it. The
// stopped child is then killed (SIGKILL) and reaped, so that nothing it holds
// (a pipe, the caller's standard error) outlives the wait.
#pragma once

#include <sys/types.h>

namespace crelm::util {

enum class ChildEndKind { exited, killed, stopped, continued, wait_failed, still_running };

struct ChildEnd {
    ChildEndKind kind = ChildEndKind::wait_failed;
    pid_t pid = -1;  // what waitpid returned
    int value = 0;   // exit code, signal number, or errno of a failed wait
};

enum class WaitMode { block, poll };

// waitpid(pid, WUNTRACED [| WNOHANG]), retried on EINTR. With WaitMode::poll
// a child that has not changed state gives still_running. A stopped child is
// killed and reaped before the stopped end (with its stop signal) is returned.
ChildEnd wait_child(pid_t pid, WaitMode mode = WaitMode::block);

// Logs an abnormal end and reduces it: the exit code for an exited child,
// -1 otherwise. name "<unknown>" when null. Logged (error level unless said):
//   "fork before spawning '%s' failed" (pid < 0, no wait done)
//   "waitpid(%ld) for '%s' process failed: %s (%d)"
//   "waitpid(%ld) for '%s' process returned unexpected 0 code"
//   warning: "waitpid(%ld)=%ld: process '%s' killed by signal %d"
//   warning: "waitpid(%ld)=%ld: process '%s' stopped by signal %d"
//   warning: "waitpid(%ld)=%ld: process '%s' continued"
int child_end_logged(pid_t pid, const ChildEnd& end, const char* name);

// wait_child and child_end_logged in one: the exit code or -1.
int wait_child_logged(pid_t pid, const char* name);

}  // namespace crelm::util
