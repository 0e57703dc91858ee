// Runs a piece of code in a forked child of the test process, with standard
// output and standard error caught in files, for code that ends the process.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <cstdlib>
#include <functional>
#include <string>

#include "support/sandbox.h"

namespace sorvane::test {

// The child's exit status is what action returns, unless action ends the
// process itself. while_waiting, if given, is called repeatedly until the
// child has ended (to drain what the child sends to the test).
inline ProcessResult run_in_child(const std::function<int()>& action,
                                  const std::function<void()>& while_waiting = {}) {
    const std::string out_path = scratch_dir() + "/child-out";
    const std::string err_path = scratch_dir() + "/child-err";
    std::fflush(stdout);
    std::fflush(stderr);
    const pid_t pid = fork();
    if (pid == 0) {
        if (!std::freopen(out_path.c_str(), "w", stdout) || !std::freopen(err_path.c_str(), "w", stderr))
            _exit(127);
        const int status = action();
        std::fflush(stdout);
        std::fflush(stderr);
        _exit(status);
    }
    ProcessResult result;
    int wait_status = 0;
    if (while_waiting) {
        const timespec pause{0, 1000000};
        while (waitpid(pid, &wait_status, WNOHANG) == 0) {
            while_waiting();
            nanosleep(&pause, nullptr);
        }
    } else {
        EXPECT_EQ(waitpid(pid, &wait_status, 0), pid);
    }
    result.status = WIFEXITED(wait_status) ? WEXITSTATUS(wait_status) : 128 + WTERMSIG(wait_status);
    result.out = read_file(out_path);
    result.err = read_file(err_path);
    return result;
}

}  // namespace sorvane::test
