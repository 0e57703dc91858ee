#include "mailbox/directory_entries.h"

#include <dirent.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

namespace crelm::mailbox {
namespace {

bool is_dot_or_dot_dot(const char* name) {
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

}  // namespace

DirectoryEntries::DirectoryEntries(int fd) : fd_(fd), buffer_(new char[kBufferSize]) {}

bool DirectoryEntries::refill() {
    for (;;) {
        const long got = syscall(SYS_getdents64, fd_, buffer_.get(), kBufferSize);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            error_ = errno;
        length_ = got > 0 ? static_cast<std::size_t>(got) : 0;
        position_ = 0;
        return got > 0;
    }
}

bool DirectoryEntries::next(DirectoryEntry& entry) {
    for (;;) {
        if (position_ >= length_ && !refill())
            return false;
        const auto* record = reinterpret_cast<const struct dirent64*>(buffer_.get() + position_);
        position_ += record->d_reclen;
        if (is_dot_or_dot_dot(record->d_name))
            continue;
        entry.name = record->d_name;
        entry.type = record->d_type;
        return true;
    }
}

}  // namespace crelm::mailbox
