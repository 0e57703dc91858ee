// One edit of a file per run, for bench/file_str_bench.sh, which times whole
// runs of this program beside sed and beside a bare copy.
//
//   file_str_driver add-top <path> <line>   file_str adds the line at the top
//   file_str_driver remove <path> <line>    file_str removes lines equal to it
//   file_str_driver copy <path>             the limit: the file copied through
//                                           "<path>.tmp" in large blocks and
//                                           renamed onto itself
//
// Exit status: file_str's result, or 0/1 for the copy.
#include "util/file_str.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

bool write_all(int fd, const char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t written = ::write(fd, data, size);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        data += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

bool copy_blocks(int from, int to) {
    std::vector<char> block(1 << 20);
    ssize_t got = 0;
    while ((got = ::read(from, block.data(), block.size())) > 0)
        if (!write_all(to, block.data(), static_cast<std::size_t>(got)))
            return false;
    return got == 0;
}

int bare_copy(const std::string& path) {
    const std::string temp = path + ".tmp";
    const int from = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const int to = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    const bool copied = from >= 0 && to >= 0 && copy_blocks(from, to);
    const bool closed = (to < 0 || ::close(to) == 0) && (from < 0 || ::close(from) == 0);
    if (!copied || !closed || ::rename(temp.c_str(), path.c_str()) != 0) {
        std::fprintf(stderr, "copy of %s failed: %s\n", path.c_str(), std::strerror(errno));
        ::unlink(temp.c_str());
        return 1;
    }
    return 0;
}

int usage() {
    std::fprintf(stderr, "usage: file_str_driver add-top|remove <path> <line> | copy <path>\n");
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::strcmp(argv[1], "copy") == 0)
        return bare_copy(argv[2]);
    if (argc != 4)
        return usage();
    if (std::strcmp(argv[1], "add-top") == 0)
        return file_str_one(argv[2], argv[3], LineAction::add, LinePosition::start);
    if (std::strcmp(argv[1], "remove") == 0)
        return file_str_one(argv[2], argv[3], LineAction::remove_exact, LinePosition::start);
    return usage();
}
