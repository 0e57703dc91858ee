#include "util/file_create.h"

#include "runtime/log.h"
#include "util/nofollow.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>

namespace {

int open_and_close(const std::string& path, int extra_flags, const char* failure_format) {
    const crelm::util::ParentDir parent = crelm::util::open_parent(path);
    crelm::util::UniqueFd fd(parent.fd.valid()
                                 ? ::openat(parent.fd.get(), parent.name.c_str(),
                                            O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC | extra_flags, 0644)
                                 : -1);
    if (!fd.valid() || fd.close() != 0) {
        report_error(0, 0, failure_format, path.c_str(), std::strerror(errno));
        return -1;
    }
    return 0;
}

}  // namespace

int truncate_file(const std::string& path) {
    return open_and_close(path, O_TRUNC, "Unable to truncate or create file %s: %s\n");
}

int create_file(const std::string& path) {
    return open_and_close(path, 0, "Unable to create file %s: %s\n");
}
