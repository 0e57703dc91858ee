#include "util/closefrom.h"

#include "util/strict_number.h"

#include <dirent.h>
#include <unistd.h>

#include <vector>

namespace crelm::util {

int closefrom(int lowest) {
    DIR* listing = ::opendir("/proc/self/fd");
    if (listing == nullptr)
        return -1;
    // Collected first and closed after closedir: the listing's own
    // descriptor is among the entries.
    std::vector<int> open_fds;
    while (const dirent* entry = ::readdir(listing)) {
        const int fd = parse_strict_number(entry->d_name);
        if (fd >= lowest && fd != ::dirfd(listing))
            open_fds.push_back(fd);
    }
    ::closedir(listing);
    for (const int fd : open_fds)
        ::close(fd);
    return 0;
}

}  // namespace crelm::util
