#include "util/child_descriptors.h"

#include "util/closefrom.h"

#include <fcntl.h>
#include <unistd.h>

namespace crelm::util {

namespace {

// A copy at 3 or above, so that putting one source in place never
// overwrites another that is still to be placed.
int staged_copy(int source) {
    if (source >= 0)
        return ::fcntl(source, F_DUPFD, 3);
    const int null_fd = ::open("/dev/null", O_RDWR);
    if (null_fd < 0 || null_fd >= 3)
        return null_fd;
    const int moved = ::fcntl(null_fd, F_DUPFD, 3);
    ::close(null_fd);
    return moved;
}

}  // namespace

int place_standard_descriptors(const std::array<int, 3>& sources) {
    std::array<int, 3> staged{};
    for (int i = 0; i < 3; ++i) {
        staged[i] = staged_copy(sources[i]);
        if (staged[i] < 0)
            return -1;
    }
    for (int i = 0; i < 3; ++i)
        if (::dup2(staged[i], i) < 0)
            return -1;
    if (crelm::util::closefrom(3) != 0)
        ::closefrom(3);
    return 0;
}

}  // namespace crelm::util
