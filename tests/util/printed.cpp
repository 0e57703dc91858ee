#include "printed.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <sstream>

namespace sorvane::test {

NoFreeDescriptors::NoFreeDescriptors() {
    getrlimit(RLIMIT_NOFILE, &saved_);
    // The lowest free descriptor becomes the limit: every one below it is in use.
    const int lowest_free = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(lowest_free);
    rlimit lowered = saved_;
    lowered.rlim_cur = static_cast<rlim_t>(lowest_free);
    setrlimit(RLIMIT_NOFILE, &lowered);
}

NoFreeDescriptors::~NoFreeDescriptors() {
    setrlimit(RLIMIT_NOFILE, &saved_);
}

std::vector<std::string> split_lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

std::string with_system_error(const std::string& message, int error) {
    return message + "\nSystem error " + std::to_string(error) + ": " + std::strerror(error) + "\n";
}

int reap(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace sorvane::test
