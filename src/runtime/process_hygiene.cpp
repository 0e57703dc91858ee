#include "runtime/process_hygiene.h"

#include "runtime/password_input.h"

#include <signal.h>
#include <sys/stat.h>

namespace {

void default_child_signal() {
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    sigemptyset(&action.sa_mask);
    ::sigaction(SIGCHLD, &action, nullptr);
    sigset_t child_signal;
    sigemptyset(&child_signal);
    sigaddset(&child_signal, SIGCHLD);
    ::sigprocmask(SIG_UNBLOCK, &child_signal, nullptr);
}

}  // namespace

void settle_process_state() {
    ::umask(022);
    default_child_signal();
    take_password_variables();
}
