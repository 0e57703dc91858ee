#include "util/process.h"

#include "runtime/log.h"
#include "util/child_descriptors.h"
#include "util/child_wait.h"
#include "util/child_watch.h"
#include "util/unique_fd.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <vector>

using crelm::util::UniqueFd;

namespace {

// While it lives, a reader that goes away makes write fail with EPIPE
// instead of killing this process.
class IgnoreBrokenPipe {
public:
    IgnoreBrokenPipe() {
        struct sigaction ignore {};
        ignore.sa_handler = SIG_IGN;
        sigemptyset(&ignore.sa_mask);
        ::sigaction(SIGPIPE, &ignore, &saved_);
    }
    ~IgnoreBrokenPipe() { ::sigaction(SIGPIPE, &saved_, nullptr); }
    IgnoreBrokenPipe(const IgnoreBrokenPipe&) = delete;
    IgnoreBrokenPipe& operator=(const IgnoreBrokenPipe&) = delete;

private:
    struct sigaction saved_ {};
};

[[noreturn]] void exec_shell(int input, const char* command) {
    if (crelm::util::place_standard_descriptors({input, 1, 2}) != 0)
        ::_exit(127);
    ::execl("/bin/sh", "sh", "-c", command, static_cast<char*>(nullptr));
    ::_exit(127);
}

// Writes data to the child's standard input for as long as the child runs;
// a child that ends (or stops: then it is killed) before it has read it all
// ends the writing, even when a grandchild holds the pipe without reading.
// Result: the bytes written.
std::size_t write_while_running(int fd, const std::string& data, crelm::util::ChildWatch& watch) {
    std::size_t done = 0;
    while (done < data.size()) {
        const ssize_t n = ::write(fd, data.data() + done, data.size() - done);
        if (n > 0) {
            done += static_cast<std::size_t>(n);
            continue;
        }
        if (n < 0 && errno == EINTR)
            continue;
        if (n == 0 || errno != EAGAIN || watch.ended())
            break;
        std::vector<pollfd> watched{{fd, POLLOUT, 0}};
        watch.await(watched);
    }
    return done;
}

void make_nonblocking(int fd) {
    const int flags = ::fcntl(fd, F_GETFL);
    if (flags >= 0)
        ::fcntl(fd, F_SETFL, flags | O_NONBLOCK);
}

// The exit code bits of the status, as a shell reports them; a child that
// ended without an exit code gives 0.
int exit_code_bits(const crelm::util::ChildEnd& end) {
    switch (end.kind) {
    case crelm::util::ChildEndKind::exited:
        return end.value;
    case crelm::util::ChildEndKind::killed:
        return 0;
    default:
        return -1;
    }
}

}  // namespace

int popen_exec(const std::string& command, const std::string& input) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        report_error(0, 0, "Failed to execute command with input: either pipe, fork or memory allocation failed.");
        return -1;
    }
    UniqueFd read_end(ends[0]);
    UniqueFd write_end(ends[1]);
    std::fflush(nullptr);
    const pid_t pid = ::fork();
    if (pid < 0) {
        report_error(0, 0, "Failed to execute command with input: either pipe, fork or memory allocation failed.");
        return -1;
    }
    if (pid == 0)
        exec_shell(read_end.get(), command.c_str());
    read_end.reset();
    make_nonblocking(write_end.get());
    crelm::util::ChildWatch watch(pid);
    std::size_t written = 0;
    {
        IgnoreBrokenPipe guard;
        written = write_while_running(write_end.get(), input, watch);
    }
    write_end.reset();
    const crelm::util::ChildEnd end = watch.ended() ? watch.end() : crelm::util::wait_child(pid);
    if (end.kind == crelm::util::ChildEndKind::stopped)
        crelm::util::child_end_logged(pid, end, "/bin/sh");
    if (written < input.size()) {
        errno = 0;
        report_error(0, 0, "Failed to execute command with input: only %lu of %lu bytes were written.",
                     static_cast<unsigned long>(written), static_cast<unsigned long>(input.size()));
        return -1;
    }
    return exit_code_bits(end);
}
