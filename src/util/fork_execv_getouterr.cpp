#include "util/process.h"

#include "runtime/log.h"
#include "util/child_wait.h"
#include "util/unique_fd.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>

using crelm::util::ChildEnd;
using crelm::util::ChildEndKind;
using crelm::util::UniqueFd;

namespace {

// How long one poll may sleep: a stopped child wakes no descriptor, so the
// wait is repeated at least this often.
constexpr int kPollMillis = 50;

struct OutputPipe {
    UniqueFd read_end;
    UniqueFd write_end;
    std::string* collected = nullptr;
    bool open = true;
};

// Buffers start at 4096 bytes, grow by 4096 while small and double after.
std::size_t grown_capacity(std::size_t capacity) {
    if (capacity < 4096)
        return 4096;
    return capacity < 4097 ? capacity + 4096 : capacity * 2;
}

void append_collected(std::string& collected, const char* data, std::size_t length) {
    try {
        std::size_t capacity = collected.capacity();
        while (collected.size() + length > capacity)
            capacity = grown_capacity(capacity);
        collected.reserve(capacity);
        collected.append(data, length);
    } catch (const std::bad_alloc&) {
        report_error(1, 1, "Cannot allocate memory");
    }
}

OutputPipe make_pipe(std::string& collected) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        report_error(1, 1, "fork_execv_getouterr: pipe() failed");
    OutputPipe made{UniqueFd(ends[0]), UniqueFd(ends[1]), &collected, true};
    const int flags = ::fcntl(ends[0], F_GETFL);
    if (flags < 0 || ::fcntl(ends[0], F_SETFL, flags | O_NONBLOCK) != 0)
        report_error(1, 1, "fork_execv_getouterr: fcntl(O_NONBLOCK) failed");
    return made;
}

// Reads what is there now; marks the pipe closed at its end or on error.
void drain(OutputPipe& pipe) {
    char block[4096];
    while (pipe.open) {
        const ssize_t got = ::read(pipe.read_end.get(), block, sizeof block);
        if (got > 0) {
            append_collected(*pipe.collected, block, static_cast<std::size_t>(got));
        } else if (got == 0) {
            pipe.open = false;
        } else if (errno == EAGAIN) {
            return;
        } else if (errno != EINTR) {
            report_error(0, 0, "fork_exec*: read(pipe) failed: %s\n", std::strerror(errno));
            pipe.open = false;
        }
    }
}

// Sleeps until output arrives, the child ends (its pidfd, when the kernel
// gives one, becomes readable) or the poll interval passes.
void await_activity(const OutputPipe& out, const OutputPipe& err, int child_fd) {
    pollfd watched[3] = {{out.open ? out.read_end.get() : -1, POLLIN, 0},
                         {err.open ? err.read_end.get() : -1, POLLIN, 0},
                         {child_fd, POLLIN, 0}};
    ::poll(watched, 3, kPollMillis);
}

}  // namespace

int fork_execv_getouterr(std::string& out, std::string& err, const std::string& path, const ArgList& argv) {
    out.clear();
    err.clear();
    OutputPipe out_pipe = make_pipe(out);
    OutputPipe err_pipe = make_pipe(err);
    const pid_t pid = fork_execv(path, argv, kNoDescriptor, out_pipe.write_end.get(), err_pipe.write_end.get());
    out_pipe.write_end.reset();
    err_pipe.write_end.reset();
    UniqueFd child_fd(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
    ChildEnd end{ChildEndKind::still_running, 0, 0};
    // The child's end is taken first, then both pipes are drained once more:
    // output written before it ended is all there, and a grandchild that
    // keeps a pipe open cannot hold the caller.
    for (;;) {
        drain(out_pipe);
        drain(err_pipe);
        if (end.kind != ChildEndKind::still_running)
            break;
        end = crelm::util::wait_child(pid, crelm::util::WaitMode::poll);
        if (end.kind == ChildEndKind::still_running)
            await_activity(out_pipe, err_pipe, child_fd.get());
    }
    return crelm::util::child_end_logged(pid, end, path.c_str());
}
