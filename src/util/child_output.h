// Reading what a child writes into pipes while waiting for its end, without
// ever waiting for the pipes' end of file: a grandchild that inherited a pipe
// may keep it open long after the child is gone.
#pragma once

#include "util/child_wait.h"

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <vector>

namespace crelm::util {

// One pipe from a child: its read end (non-blocking), the largest single
// read, and what receives each piece read.
struct ChildOutput {
    int fd = -1;
    std::size_t chunk = 4096;
    std::function<void(const char*, std::size_t)> take;
    bool open = true;
};

// Passes what arrives on outputs to their takers until the child has ended,
// then takes only what the pipes hold at that moment and stops. A failed
// read is reported ("fork_exec*: read(pipe) failed: %s\n") and ends the
// reading of that pipe. Result: the child's end, as wait_child gives it (a
// stopped child killed and reaped).
ChildEnd collect_until_end(pid_t pid, std::vector<ChildOutput>& outputs);

}  // namespace crelm::util
