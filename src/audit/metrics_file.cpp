#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "audit/metrics_output.h"

namespace crelm::audit {

namespace {

bool write_all(int fd, const std::string& content) {
    std::size_t done = 0;
    while (done < content.size()) {
        const ssize_t written = ::write(fd, content.data() + done, content.size() - done);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        done += static_cast<std::size_t>(written);
    }
    return true;
}

std::string directory_of(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// Flushes the directory so that the rename outlives a crash; a directory
// that cannot be opened leaves the rename done but unflushed.
bool flush_directory(const std::string& directory) {
    const int fd = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool flushed = ::fsync(fd) == 0;
    ::close(fd);
    return flushed;
}

}  // namespace

bool replace_file_atomically(const std::string& path, const std::string& content, std::string& why) {
    const std::string pattern = path + ".tmp.XXXXXX";
    std::string temporary = pattern;
    const int fd = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0) {
        why = "cannot create " + pattern + ": " + std::strerror(errno);
        return false;
    }
    // Readable by the collector, which need not run as root.
    const bool written = ::fchmod(fd, 0644) == 0 && write_all(fd, content) && ::fsync(fd) == 0;
    const int error = errno;
    if (::close(fd) != 0 || !written) {
        why = "cannot write " + temporary + ": " + std::strerror(written ? errno : error);
        ::unlink(temporary.c_str());
        return false;
    }
    if (::rename(temporary.c_str(), path.c_str()) != 0) {
        why = "cannot rename " + temporary + " to " + path + ": " + std::strerror(errno);
        ::unlink(temporary.c_str());
        return false;
    }
    if (!flush_directory(directory_of(path))) {
        why = "cannot flush the directory of " + path + ": " + std::strerror(errno);
        return false;
    }
    return true;
}

}  // namespace crelm::audit
