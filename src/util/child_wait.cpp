#include "util/child_wait.h"

#include "runtime/log.h"

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

}  // namespace

ChildEnd wait_child(pid_t pid, WaitMode mode) {
    const int options = WUNTRACED | (mode == WaitMode::poll ? WNOHANG : 0);
    int status = 0;
    pid_t returned = -1;
    do {
        returned = ::waitpid(pid, &status, options);
    } while (returned < 0 && errno == EINTR);
    if (returned < 0)
        return {ChildEndKind::wait_failed, returned, errno};
    if (returned == 0)
        return {ChildEndKind::still_running, returned, 0};
    return classify(returned, status);
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
