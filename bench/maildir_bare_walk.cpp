// The floor for counting a mailbox: walks a tree reading directory entries
// in large batches and adds up the ",S=" sizes in the names, without a single
// stat call (directories are recognised by the entry type alone, links are
// never entered). Not a correct counter: names without a size count 0.
//
//   maildir_bare_walk <directory>
#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

namespace {

constexpr std::size_t kBufferSize = 64 * 1024;

long long size_in_name(std::string_view name) {
    const std::size_t marker = name.rfind(",S=");
    if (marker == std::string_view::npos)
        return 0;
    long long size = 0;
    for (std::size_t i = marker + 3; i < name.size() && name[i] >= '0' && name[i] <= '9'; ++i)
        size = size * 10 + (name[i] - '0');
    return size;
}

void walk(int dir_fd, long long& bytes, long long& entries) {
    // One buffer serves every level: subdirectories are collected first and
    // entered once this directory has been read to its end.
    static char buffer[kBufferSize];
    std::size_t subdirectories = 0;
    std::string names;
    for (long got; (got = syscall(SYS_getdents64, dir_fd, buffer, kBufferSize)) > 0;) {
        for (long position = 0; position < got;) {
            const auto* entry = reinterpret_cast<const struct dirent64*>(buffer + position);
            position += entry->d_reclen;
            const char* name = entry->d_name;
            if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0')))
                continue;
            if (entry->d_type == DT_DIR) {
                names.append(name).push_back('\0');
                ++subdirectories;
                continue;
            }
            bytes += size_in_name(name);
            ++entries;
        }
    }
    for (std::size_t i = 0, offset = 0; i < subdirectories; ++i) {
        const char* name = names.c_str() + offset;
        offset += std::strlen(name) + 1;
        const int fd = openat(dir_fd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (fd >= 0) {
            walk(fd, bytes, entries);
            close(fd);
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s <directory>\n", argv[0]);
        return 2;
    }
    const int fd = open(argv[1], O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        std::perror(argv[1]);
        return 1;
    }
    long long bytes = 0;
    long long entries = 0;
    walk(fd, bytes, entries);
    std::printf("%lld %lld\n", bytes, entries);
    return 0;
}
