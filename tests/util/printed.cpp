#include "printed.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <sstream>

namespace sorvane::test {

namespace {

rlimit& limit_before_lowering() {
    static rlimit saved{};
    return saved;
}

int highest_open_descriptor() {
    int highest = 2;
    DIR* listing = opendir("/proc/self/fd");
    while (const dirent* entry = listing != nullptr ? readdir(listing) : nullptr)
        if (entry->d_name[0] != '.')
            highest = std::max(highest, std::atoi(entry->d_name));
    if (listing != nullptr)
        closedir(listing);
    return highest;
}

}  // namespace

NoFreeDescriptors::NoFreeDescriptors(int spare) {
    getrlimit(RLIMIT_NOFILE, &saved_);
    limit_before_lowering() = saved_;
    // Every hole below the highest open descriptor is filled, so that
    // exactly spare descriptors stay free under the new limit.
    const int highest = highest_open_descriptor();
    for (int fd = open("/dev/null", O_RDONLY | O_CLOEXEC); fd >= 0 && fd < highest;
         fd = open("/dev/null", O_RDONLY | O_CLOEXEC))
        fillers_.push_back(fd);
    close(highest + 1);
    rlimit lowered = saved_;
    lowered.rlim_cur = static_cast<rlim_t>(highest + 1 + spare);
    setrlimit(RLIMIT_NOFILE, &lowered);
}

void NoFreeDescriptors::restore_at_exit() {
    std::atexit([] { setrlimit(RLIMIT_NOFILE, &limit_before_lowering()); });
}

NoFreeDescriptors::~NoFreeDescriptors() {
    setrlimit(RLIMIT_NOFILE, &saved_);
    for (const int fd : fillers_)
        close(fd);
}

std::vector<std::string> split_lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

int reap(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

bool already_reaped(pid_t pid) {
    int status = 0;
    return waitpid(pid, &status, WNOHANG | WUNTRACED) < 0 && errno == ECHILD;
}

}  // namespace sorvane::test
