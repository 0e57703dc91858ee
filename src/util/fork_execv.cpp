#include "util/process.h"

#include "runtime/log.h"
#include "util/child_descriptors.h"
#include "util/child_wait.h"
#include "util/exec_args.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

[[noreturn]] void exec_child(const std::array<int, 3>& sources, const char* path, char* const* argv) {
    if (crelm::util::place_standard_descriptors(sources) != 0) {
        std::fprintf(stderr, "fork_execv: dup() failed: %s\n", std::strerror(errno));
        std::fflush(stderr);
        ::_exit(127);
    }
    ::execv(path, argv);
    std::fprintf(stderr, "fork_execv: execv(\"%s\") failed: %s\n", path, std::strerror(errno));
    std::fflush(stderr);
    ::_exit(127);
}

}  // namespace

pid_t fork_execv(const std::string& path, const ArgList& argv, int in, int out, int err) {
    std::vector<char*> args = crelm::util::exec_argv(argv);
    std::fflush(nullptr);
    const pid_t pid = ::fork();
    if (pid < 0)
        report_error(1, 1, "fork_execv_pipes: fork() failed");
    if (pid == 0)
        exec_child({in, out, err}, path.c_str(), args.data());
    return pid;
}

int fork_execv_quiet(const std::string& path, const ArgList& argv) {
    const pid_t pid = fork_execv(path, argv);
    const crelm::util::ChildEnd end = crelm::util::wait_child(pid);
    const int result = crelm::util::child_end_logged(pid, end, path.c_str());
    return end.kind == crelm::util::ChildEndKind::killed ? 1 : result;
}
