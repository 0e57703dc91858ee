// Watching one child while its parent moves data through pipes to or from
// it, so that neither the pipes nor the child can hold the parent for longer
// than the child lives.
#pragma once

#include "util/child_wait.h"
#include "util/unique_fd.h"

#include <poll.h>
#include <sys/types.h>

#include <vector>

namespace crelm::util {

class ChildWatch {
public:
    // Opens a pidfd for pid when the kernel gives one (it wakes await as
    // soon as the child ends); without one, await only times out.
    explicit ChildWatch(pid_t pid);

    // Whether the child has ended, checked without blocking (wait_child with
    // WaitMode::poll: a stopped child is killed and reaped and counts as
    // ended). Once true, end() holds how it ended.
    bool ended();
    const ChildEnd& end() const { return end_; }

    // Sleeps until a descriptor of watched is ready, the child ends, or
    // kPollMillis pass: a stop wakes no descriptor, so the child is looked at
    // again at least that often. watched gets the revents.
    void await(std::vector<pollfd>& watched) const;

    static constexpr int kPollMillis = 50;

private:
    pid_t pid_;
    UniqueFd pidfd_;
    ChildEnd end_{ChildEndKind::still_running, 0, 0};
};

}  // namespace crelm::util
