#include "util/child_output.h"

#include "runtime/log.h"
#include "util/child_watch.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace crelm::util {

namespace {

// Reads taken per pipe and round, so that a writer that never pauses cannot
// keep the loop from looking at the child.
constexpr int kReadsPerRound = 16;

// One read of at most limit (<= chunk) bytes, passed on. Result: the bytes
// read; 0 when the pipe holds nothing now or is finished with (end of file,
// a failed read), which marks it closed.
std::size_t read_once(ChildOutput& output, std::size_t limit) {
    std::vector<char> block(output.chunk);
    ssize_t got = -1;
    do {
        got = ::read(output.fd, block.data(), limit);
    } while (got < 0 && errno == EINTR);
    if (got > 0) {
        output.take(block.data(), static_cast<std::size_t>(got));
        return static_cast<std::size_t>(got);
    }
    if (got < 0 && errno == EAGAIN)
        return 0;
    if (got < 0)
        report_error(0, 0, "fork_exec*: read(pipe) failed: %s\n", std::strerror(errno));
    output.open = false;
    return 0;
}

void read_available(ChildOutput& output) {
    for (int round = 0; output.open && round < kReadsPerRound; ++round)
        if (read_once(output, output.chunk) == 0)
            return;
}

// Only the bytes in the pipe now: whoever still holds its other end may
// write more, and nobody waits for that.
void read_remaining(ChildOutput& output) {
    int pending = 0;
    if (output.open && ::ioctl(output.fd, FIONREAD, &pending) == 0) {
        std::size_t left = static_cast<std::size_t>(pending);
        while (output.open && left > 0) {
            const std::size_t got = read_once(output, left < output.chunk ? left : output.chunk);
            if (got == 0)
                break;
            left -= got;
        }
    }
    output.open = false;
}

std::vector<pollfd> readable(const std::vector<ChildOutput>& outputs) {
    std::vector<pollfd> watched;
    for (const ChildOutput& output : outputs)
        watched.push_back({output.open ? output.fd : -1, POLLIN, 0});
    return watched;
}

}  // namespace

ChildEnd collect_until_end(pid_t pid, std::vector<ChildOutput>& outputs) {
    ChildWatch watch(pid);
    for (;;) {
        for (ChildOutput& output : outputs)
            read_available(output);
        if (watch.ended())
            break;
        std::vector<pollfd> watched = readable(outputs);
        watch.await(watched);
    }
    for (ChildOutput& output : outputs)
        read_remaining(output);
    return watch.end();
}

}  // namespace crelm::util
