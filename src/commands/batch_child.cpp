#include "commands/batch_child.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <vector>

#include "commands/batch_rebuilds.h"
#include "commands/dispatcher.h"
#include "commands/top_level.h"
#include "runtime/error_stream.h"
#include "runtime/password_input.h"
#include "util/fd_copy.h"
#include "util/unique_fd.h"

namespace crelm::mail::sorvane_commands {
namespace {

using crelm::util::UniqueFd;

// An anonymous file in memory: the child's standard input, output or error.
UniqueFd memory_file(const char* name) {
    return UniqueFd(::memfd_create(name, MFD_CLOEXEC));
}

// The whole content of a memory file, from its start.
int read_all(int fd, std::string& text) {
    text.clear();
    char buffer[65536];
    for (off_t offset = 0;;) {
        const ssize_t got = ::pread(fd, buffer, sizeof buffer, offset);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return -1;
        if (got == 0)
            return 0;
        text.append(buffer, static_cast<std::size_t>(got));
        offset += got;
    }
}

// The three files become the child's standard descriptors, and only they
// stay open, as in a fresh process. Each is first moved above the standard
// descriptors, so that none is overwritten before it is placed (the batch
// may have been started with some of them closed).
void put_standard_descriptors(const int (&files)[3]) {
    constexpr int kAboveStandard = 10;
    int moved[3];
    for (int target = 0; target < 3; ++target)
        if ((moved[target] = ::fcntl(files[target], F_DUPFD_CLOEXEC, kAboveStandard)) < 0)
            ::_exit(127);
    for (int target = 0; target < 3; ++target)
        if (files[target] > STDERR_FILENO)
            ::close(files[target]);
    for (int target = 0; target < 3; ++target) {
        // dup2 leaves the target open across exec, as a standard descriptor is.
        if (::dup2(moved[target], target) < 0)
            ::_exit(127);
        ::close(moved[target]);
    }
}

// Runs command as main would, with an argv of the program's name and the
// command's words.
int run_command(const BatchCommand& command, const std::string& program) {
    replace_password_input(command.password, command.crypted_password);
    std::vector<std::string> words{program};
    words.insert(words.end(), command.args.begin(), command.args.end());
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    const int argc = static_cast<int>(words.size());
    return run_with_top_level_handling([&] { return dispatch(argc, argv.data()); });
}

int child_status(int wait_status) {
    if (WIFSIGNALED(wait_status))
        return 128 + WTERMSIG(wait_status);
    return WEXITSTATUS(wait_status);
}

int wait_for(pid_t child, int& status) {
    int wait_status = 0;
    while (::waitpid(child, &wait_status, 0) < 0)
        if (errno != EINTR)
            return -1;
    status = child_status(wait_status);
    return 0;
}


// Writes out what the C++ and C streams hold (the command layer's error
// stream first: its flush repeats its text on standard output).
void flush_streams() {
    crelm::error_stream().flush();
    std::cout.flush();
    std::cerr.flush();
    std::clog.flush();
    std::fflush(nullptr);
}

// Ends a child whose command has returned: its output is flushed into the
// captured files, and the process ends without the exit handlers and static
// destructors, which only free memory that dies with it. In a child forked
// from the batch that freeing is the costliest part of a short command: each
// page it writes is first copied away from the batch's.
[[noreturn]] void end_child(int status) {
    flush_streams();
    ::_exit(status);
}

// A command that ends the program itself (a fatal report, a usage error,
// its help) ends its child the same way: registered last, this handler
// runs first among the exit handlers and ends the process before the rest
// (libcrypto's clean-up, the static destructors) would free, page by page,
// memory copied from the batch's.
void end_child_at_exit(int status, void*) {
    end_child(status);
}

// Forks a child that runs body with input, out and err as its standard
// descriptors; once body returns, its streams are flushed into the captured
// files. Fills outcome's status, output and error.
int run_forked(const std::function<int()>& body, UniqueFd& input, BatchOutcome& outcome) {
    UniqueFd out = memory_file("sorvane-batch-stdout");
    UniqueFd err = memory_file("sorvane-batch-stderr");
    if (!out.valid() || !err.valid())
        return -1;
    // Nothing buffered here may be written twice, once by each process.
    flush_streams();
    const pid_t child = ::fork();
    if (child < 0)
        return -1;
    if (child == 0) {
        put_standard_descriptors({input.get(), out.get(), err.get()});
        ::on_exit(end_child_at_exit, nullptr);
        end_child(body());
    }
    if (wait_for(child, outcome.status) < 0 || read_all(out.get(), outcome.out) < 0 ||
        read_all(err.get(), outcome.err) < 0)
        return -1;
    return 0;
}

}  // namespace

int run_batch_child(const BatchCommand& command, const std::string& program, Rebuilds rebuilds,
                    BatchOutcome& outcome) {
    UniqueFd input = memory_file("sorvane-batch-stdin");
    UniqueFd marks = memory_file("sorvane-batch-rebuilds");
    // Kept above the standard descriptors, which the child puts its own
    // files over (the batch may have been started with some of them
    // closed, so that a new file could land there).
    if (marks.valid() && marks.get() <= STDERR_FILENO)
        marks = UniqueFd(::fcntl(marks.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    if (!input.valid() || !marks.valid())
        return -1;
    if (command.stdin_text &&
        (!crelm::util::write_all(input.get(), *command.stdin_text) || ::lseek(input.get(), 0, SEEK_SET) < 0))
        return -1;
    const int marks_file = rebuilds == Rebuilds::deferred ? marks.get() : -1;
    const auto body = [&] {
        if (marks_file >= 0)
            defer_rebuilds_into(marks_file);
        return run_command(command, program);
    };
    if (run_forked(body, input, outcome) < 0)
        return -1;
    return read_rebuild_marks(marks.get(), outcome.marks);
}

int run_captured_child(const std::function<int()>& body, BatchOutcome& outcome) {
    UniqueFd input = memory_file("sorvane-batch-stdin");
    if (!input.valid())
        return -1;
    return run_forked(body, input, outcome);
}

}  // namespace crelm::mail::sorvane_commands
