#include "util/process.h"

#include "runtime/log.h"
#include "util/child_descriptors.h"
#include "util/child_output.h"
#include "util/child_wait.h"
#include "util/exec_args.h"
#include "util/unique_fd.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

using crelm::util::ChildEnd;
using crelm::util::ChildEndKind;
using crelm::util::UniqueFd;

namespace {

constexpr std::size_t kRelayChunk = 4095;

void write_stderr(const char* text) {
    const std::size_t length = std::strlen(text);
    [[maybe_unused]] const ssize_t written = ::write(2, text, length);
}

[[noreturn]] void exec_child(int fd_in, int fd_out, int err_pipe, const char* path, char* const* argv) {
    if (crelm::util::place_standard_descriptors({fd_in, fd_out, err_pipe}) != 0) {
        write_stderr("fork_exec_fd: dup2() failed: ");
        write_stderr(std::strerror(errno));
        write_stderr("\n");
        ::_exit(127);
    }
    const int result = ::execv(path, argv);
    const int failure = errno;
    // One write, so that the parent relays the complaint as one report.
    char message[512];
    std::snprintf(message, sizeof message, "Error occured during execv():\n%s%s", std::strerror(failure),
                  failure == EFAULT
                      ? ", possible reason - NULL parameter is absent in util_exec(path, arg1, arg2, NULL) call.\n"
                      : "\n");
    write_stderr(message);
    ::_exit(result);
}

// Every chunk the child writes on its standard error becomes one report.
void relay_chunk(const char* data, std::size_t length) {
    errno = 0;
    report_error(0, 0, "%s", std::string(data, length).c_str());
}

// The read end is non-blocking, so that the relay can stop at the child's
// end while a grandchild still holds the write end.
void make_read_end_nonblocking(int fd) {
    const int flags = ::fcntl(fd, F_GETFL);
    if (flags < 0 || ::fcntl(fd, F_SETFL, flags | O_NONBLOCK) != 0)
        report_error(1, 1, "fork_exec_fd pipe(): %s", std::strerror(errno));
}

int reduce_end(pid_t pid, const ChildEnd& end) {
    switch (end.kind) {
    case ChildEndKind::exited:
        return end.value;
    case ChildEndKind::killed:
        errno = 0;
        report_error(0, 0, "The child process with pid %d killed by signal %i\n", pid, end.value);
        return -1;
    case ChildEndKind::stopped:
        errno = 0;
        report_error(0, 0, "The child process with pid %d stopped by signal %i\n", pid, end.value);
        return -1;
    default:
        errno = end.value;
        report_error(0, 0, "Error occured during waiting the child process with pid: %d: %s\n", pid,
                     std::strerror(end.value));
        return -1;
    }
}

}  // namespace

int fork_exec_fd(int fd_in, int fd_out, const std::string& path, const ArgList& argv) {
    // Only these two comparisons are made, though the message names 2 too.
    if (fd_in == 0 || fd_out == 1) {
        errno = 0;
        report_error(0, 0, "values 0,1,2 not allowed for variables fd_in & fd_out\n");
        return -1;
    }
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        report_error(1, 1, "fork_exec_fd pipe(): %s", std::strerror(errno));
    UniqueFd read_end(ends[0]);
    UniqueFd write_end(ends[1]);
    make_read_end_nonblocking(read_end.get());
    std::vector<char*> args = crelm::util::exec_argv(argv);
    std::fflush(nullptr);
    const pid_t pid = ::fork();
    if (pid < 0)
        report_error(1, 1, "Error occured during fork():\n%s", std::strerror(errno));
    if (pid == 0)
        exec_child(fd_in, fd_out, write_end.get(), path.c_str(), args.data());
    write_end.reset();
    std::vector<crelm::util::ChildOutput> errors{{read_end.get(), kRelayChunk, relay_chunk}};
    return reduce_end(pid, crelm::util::collect_until_end(pid, errors));
}
