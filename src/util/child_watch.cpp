#include "util/child_watch.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

namespace crelm::util {

ChildWatch::ChildWatch(pid_t pid) : pid_(pid), pidfd_(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0))) {}

bool ChildWatch::ended() {
    if (end_.kind == ChildEndKind::still_running)
        end_ = wait_child(pid_, WaitMode::poll);
    return end_.kind != ChildEndKind::still_running;
}

void ChildWatch::await(std::vector<pollfd>& watched) const {
    watched.push_back({pidfd_.get(), POLLIN, 0});
    while (::poll(watched.data(), watched.size(), kPollMillis) < 0 && errno == EINTR) {
    }
    watched.pop_back();
}

}  // namespace crelm::util
