// The floor for adding a mail name's record: puts one line at the top of a
// file the plainest way (read it whole, write the line and the old content
// to a temporary file, rename it into place) and prints how long that took
// in microseconds, process start excluded.
//
//   assign_prepend_driver <file> <line>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <string>

namespace {

bool read_whole(const std::string& path, std::string& content) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    struct stat st {};
    if (fstat(fd, &st) != 0) {
        close(fd);
        return false;
    }
    content.resize(static_cast<std::size_t>(st.st_size));
    std::size_t got = 0;
    while (got < content.size()) {
        const ssize_t n = read(fd, content.data() + got, content.size() - got);
        if (n <= 0)
            break;
        got += static_cast<std::size_t>(n);
    }
    close(fd);
    content.resize(got);
    return true;
}

bool write_all(int fd, const std::string& data) {
    std::size_t done = 0;
    while (done < data.size()) {
        const ssize_t n = write(fd, data.data() + done, data.size() - done);
        if (n <= 0)
            return false;
        done += static_cast<std::size_t>(n);
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s <file> <line>\n", argv[0]);
        return 2;
    }
    const std::string path = argv[1];
    const std::string line = std::string(argv[2]) + "\n";
    const auto start = std::chrono::steady_clock::now();
    std::string content;
    if (!read_whole(path, content))
        return 1;
    const std::string temporary = path + ".prepend";
    const int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0 || !write_all(fd, line) || !write_all(fd, content) || close(fd) != 0 ||
        rename(temporary.c_str(), path.c_str()) != 0)
        return 1;
    const auto elapsed = std::chrono::steady_clock::now() - start;
    std::printf("%lld\n", static_cast<long long>(std::chrono::duration_cast<std::chrono::microseconds>(elapsed).count()));
    return 0;
}
