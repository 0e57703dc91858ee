// Runs a program in the odd process state a careless caller may leave:
//   odd_process_state [--umask=<octal>] [--ignore-sigchld] [--block-sigchld] -- <program> [args...]
// The state is set up here and the program is exec'd in this same process,
// so it inherits the umask, the ignored SIGCHLD and the blocked mask.
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

void ignore_child_signal() {
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    sigemptyset(&ignore.sa_mask);
    sigaction(SIGCHLD, &ignore, nullptr);
}

void block_child_signal() {
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGCHLD);
    sigprocmask(SIG_BLOCK, &blocked, nullptr);
}

}  // namespace

int main(int argc, char** argv) {
    int next = 1;
    for (; next < argc && std::strcmp(argv[next], "--") != 0; ++next) {
        const std::string option = argv[next];
        if (option.rfind("--umask=", 0) == 0)
            umask(static_cast<mode_t>(std::strtol(option.c_str() + 8, nullptr, 8)));
        else if (option == "--ignore-sigchld")
            ignore_child_signal();
        else if (option == "--block-sigchld")
            block_child_signal();
        else {
            std::fprintf(stderr, "odd_process_state: unknown option %s\n", option.c_str());
            return 127;
        }
    }
    if (next + 1 >= argc) {
        std::fprintf(stderr, "odd_process_state: no program given\n");
        return 127;
    }
    execv(argv[next + 1], argv + next + 1);
    std::fprintf(stderr, "odd_process_state: execv %s: %s\n", argv[next + 1], std::strerror(errno));
    return 127;
}
