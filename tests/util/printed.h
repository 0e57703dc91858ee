// Small helpers shared by the utility tests, beside what code prints (caught
// in-process, from the common test support).
#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <string>
#include <vector>

#include "support/printed.h"

namespace sorvane::test {

// Lowers the descriptor limit so that the next open, pipe or mkstemp fails
// with EMFILE; restores it when it goes out of scope.
class NoFreeDescriptors {
public:
    // spare: how many descriptors stay free.
    explicit NoFreeDescriptors(int spare = 0);
    // For code that ends the program: the limit is restored when exit runs,
    // before anything that needs a descriptor on the way out.
    static void restore_at_exit();
    ~NoFreeDescriptors();
    NoFreeDescriptors(const NoFreeDescriptors&) = delete;
    NoFreeDescriptors& operator=(const NoFreeDescriptors&) = delete;

private:
    rlimit saved_{};
    std::vector<int> fillers_;
};

// Splits text at '\n'; a trailing newline gives no empty last piece.
std::vector<std::string> split_lines(const std::string& text);

// Waits (blocking) for a process of ours and tells how it ended: the exit
// code, or 128 + the signal that killed it.
int reap(pid_t pid);

// Whether pid is no longer ours to wait for: it ended and was reaped (a
// child that is still there, running or stopped, gives false).
bool already_reaped(pid_t pid);

}  // namespace sorvane::test
