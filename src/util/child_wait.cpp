#include "util/child_wait.h"

#include "runtime/log.h"

#include <signal.h>
#include <sys/wait.h>
#include <syslog.h>

#include <cerrno>
#include <cstring>

namespace crelm::util {

namespace {

ChildEnd classify(pid_t returned, int status) {
    if (WIFEXITED(status))
        return {ChildEndKind::exited, returned, WEXITSTATUS(status)};
    if (WIFSIGNALED(status))
        return {ChildEndKind::killed, returned, WTERMSIG(status)};
    if (WIFSTOPPED(status))
        return {ChildEndKind::stopped, returned, WSTOPSIG(status)};
    return {ChildEndKind::continued, returned, 0};
}

pid_t waitpid_retried(pid_t pid, int& status, int options) {
    pid_t returned = -1;
    do {
        returned = ::waitpid(pid, &status, options);
    } while (returned < 0 && errno == EINTR);
    return returned;
}

// A stopped child would keep its descriptors (and its pid) for as long as
// nobody continues it; SIGKILL ends it even while stopped, so the reaping
// wait that follows returns at once.
void kill_and_reap(pid_t pid) {
    ::kill(pid, SIGKILL);
    int status = 0;
    waitpid_retried(pid, status, 0);
}

}  // namespace

ChildEnd wait_child(pid_t pid, WaitMode mode) {
    const int options = WUNTRACED | (mode == WaitMode::poll ? WNOHANG : 0);
    int status = 0;
    const pid_t returned = waitpid_retried(pid, status, options);
    if (returned < 0)
        return {ChildEndKind::wait_failed, returned, errno};
    if (returned == 0)
        return {ChildEndKind::still_running, returned, 0};
    const ChildEnd end = classify(returned, status);
    if (end.kind == ChildEndKind::stopped)
        kill_and_reap(returned);
    return end;
}

int child_end_logged(pid_t pid, const ChildEnd& end, const char* name) {
    const char* shown = name != nullptr ? name : "<unknown>";
    const long asked = static_cast<long>(pid);
    const long got = static_cast<long>(end.pid);
    switch (end.kind) {
    case ChildEndKind::exited:
        return end.value;
    case ChildEndKind::wait_failed:
        log_message(LOG_ERR, "waitpid(%ld) for '%s' process failed: %s (%d)", asked, shown, std::strerror(end.value),
                    end.value);
        break;
    case ChildEndKind::still_running:
        log_message(LOG_ERR, "waitpid(%ld) for '%s' process returned unexpected 0 code", asked, shown);
        break;
    case ChildEndKind::killed:
        log_message(LOG_WARNING, "waitpid(%ld)=%ld: process '%s' killed by signal %d", asked, got, shown, end.value);
        break;
    case ChildEndKind::stopped:
        log_message(LOG_WARNING, "waitpid(%ld)=%ld: process '%s' stopped by signal %d", asked, got, shown, end.value);
        break;
    case ChildEndKind::continued:
        log_message(LOG_WARNING, "waitpid(%ld)=%ld: process '%s' continued", asked, got, shown);
        break;
    }
    return -1;
}

int wait_child_logged(pid_t pid, const char* name) {
    if (pid < 0) {
        log_message(LOG_ERR, "fork before spawning '%s' failed", name != nullptr ? name : "<unknown>");
        return -1;
    }
    return child_end_logged(pid, wait_child(pid), name);
}

}  // namespace crelm::util
