#include "audit/text_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "util/nofollow.h"
#include "util/unique_fd.h"

namespace crelm::audit {

namespace {

bool read_all(int fd, std::string& text, std::size_t expected) {
    text.resize(expected);
    std::size_t filled = 0;
    for (;;) {
        if (filled == text.size())
            text.resize(text.size() + 65536);
        const ssize_t got = ::read(fd, text.data() + filled, text.size() - filled);
        if (got < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        if (got == 0)
            break;
        filled += static_cast<std::size_t>(got);
    }
    text.resize(filled);
    return true;
}

}  // namespace

TextFile read_text_file_at(int dir_fd, const std::string& name, off_t limit) {
    TextFile file;
    if (::fstatat(dir_fd, name.c_str(), &file.info, AT_SYMLINK_NOFOLLOW) != 0) {
        file.error = errno;
        file.state = errno == ENOENT ? FileState::missing : FileState::unreadable;
        return file;
    }
    if (S_ISLNK(file.info.st_mode)) {
        file.state = FileState::link;
        return file;
    }
    if (!S_ISREG(file.info.st_mode)) {
        file.state = FileState::not_regular;
        return file;
    }
    util::UniqueFd fd(::openat(dir_fd, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!fd.valid()) {
        file.error = errno;
        file.state = errno == ELOOP ? FileState::link : errno == ENOENT ? FileState::missing : FileState::unreadable;
        return file;
    }
    // What was opened is what is described: a swap between the two looks
    // is seen here.
    if (::fstat(fd.get(), &file.info) != 0) {
        file.error = errno;
        file.state = FileState::unreadable;
        return file;
    }
    if (!S_ISREG(file.info.st_mode)) {
        file.state = FileState::not_regular;
        return file;
    }
    if (limit >= 0 && file.info.st_size > limit) {
        file.state = FileState::too_large;
        return file;
    }
    if (!read_all(fd.get(), file.text, static_cast<std::size_t>(file.info.st_size))) {
        file.error = errno;
        file.state = FileState::unreadable;
        file.text.clear();
        return file;
    }
    file.state = FileState::present;
    return file;
}

TextFile read_text_file(const std::string& path, off_t limit) {
    util::ParentDir parent = util::open_parent(path);
    if (!parent.fd.valid()) {
        TextFile file;
        file.error = errno;
        file.state = errno == ENOENT ? FileState::missing : FileState::unreadable;
        return file;
    }
    return read_text_file_at(parent.fd.get(), parent.name, limit);
}

std::string file_state_text(const TextFile& file) {
    switch (file.state) {
    case FileState::present:
        return "present";
    case FileState::missing:
        return "missing";
    case FileState::link:
        return "a symbolic link";
    case FileState::not_regular:
        return "not a regular file";
    case FileState::too_large:
        return "too large";
    case FileState::unreadable:
        return std::string("unreadable: ") + std::strerror(file.error);
    }
    return "unreadable";
}

std::vector<std::string_view> text_lines(std::string_view text) {
    std::vector<std::string_view> lines;
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = text.find('\n', start);
        if (end == std::string_view::npos)
            end = text.size();
        lines.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

}  // namespace crelm::audit
