#include "mailbox/open_directory.h"

#include <fcntl.h>

namespace crelm::mailbox {

crelm::util::UniqueFd open_directory_at(int dir_fd, const char* name) {
    return crelm::util::UniqueFd(openat(dir_fd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

}  // namespace crelm::mailbox
