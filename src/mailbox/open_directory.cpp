#include "mailbox/open_directory.h"

#include "util/nofollow.h"

#include <fcntl.h>

namespace crelm::mailbox {

crelm::util::UniqueFd open_directory_at(int dir_fd, const char* name) {
    return crelm::util::UniqueFd(openat(dir_fd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

crelm::util::UniqueFd open_directory(const std::string& path) {
    const crelm::util::ParentDir parent = crelm::util::open_parent(path);
    if (!parent.fd.valid())
        return crelm::util::UniqueFd();
    return open_directory_at(parent.fd.get(), parent.name.c_str());
}

}  // namespace crelm::mailbox
