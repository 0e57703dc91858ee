#include "util/file_create.h"

#include "runtime/log.h"
#include "util/unique_fd.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>

namespace {

int open_and_close(const std::string& path, int extra_flags, const char* failure_format) {
    crelm::util::UniqueFd fd(::open(path.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC | extra_flags, 0644));
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
