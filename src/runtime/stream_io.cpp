#include "runtime/stream_io.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

#include "runtime/log.h"

namespace {

constexpr std::size_t kCopyBlock = 8192;

struct FileClose {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

// write() until all of data is out, across partial writes and interruptions.
bool write_whole(int fd, const char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t written = write(fd, data, size);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        data += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

ssize_t read_some(int fd, char* buffer, std::size_t size) {
    ssize_t got;
    do
        got = read(fd, buffer, size);
    while (got < 0 && errno == EINTR);
    return got;
}

}  // namespace

std::optional<std::string> read_all(std::FILE* stream) {
    try {
        std::string buffer(1024, '\0');
        std::size_t used = 0;
        for (;;) {
            // The last byte stays free: the buffer is doubled once a read fills the rest.
            const std::size_t room = buffer.size() - 1 - used;
            const std::size_t got = std::fread(buffer.data() + used, 1, room, stream);
            used += got;
            if (got < room)
                break;
            buffer.resize(buffer.size() * 2);
        }
        if (std::ferror(stream)) {
            log_message(3, "Unable to read input: %s", std::strerror(errno));
            return std::nullopt;
        }
        buffer.resize(used);
        return buffer;
    } catch (const std::bad_alloc&) {
        return std::nullopt;
    }
}

std::optional<std::string> read_file_all(const char* path) {
    const std::unique_ptr<std::FILE, FileClose> file(std::fopen(path, "r"));
    if (!file)
        return std::nullopt;
    return read_all(file.get());
}

int copy_fd(int in, int out, std::size_t limit) {
    char buffer[kCopyBlock];
    std::size_t copied = 0;
    while (limit == 0 || copied < limit) {
        const std::size_t want = limit == 0 ? sizeof buffer : std::min(sizeof buffer, limit - copied);
        const ssize_t got = read_some(in, buffer, want);
        if (got < 0) {
            log_message(3, "Unable to read descriptor %d: %s", in, std::strerror(errno));
            return -1;
        }
        if (got == 0)
            break;
        if (!write_whole(out, buffer, static_cast<std::size_t>(got))) {
            log_message(3, "Unable to write descriptor %d: %s", out, std::strerror(errno));
            return -1;
        }
        copied += static_cast<std::size_t>(got);
    }
    return 0;
}

int copy_stream(std::FILE* in, std::FILE* out) {
    char buffer[kCopyBlock];
    std::size_t got;
    while ((got = std::fread(buffer, 1, sizeof buffer, in)) > 0) {
        if (std::fwrite(buffer, 1, got, out) != got) {
            log_message(3, "Unable to write output: %s", std::strerror(errno));
            return -1;
        }
    }
    if (std::ferror(in)) {
        log_message(3, "Unable to read input: %s", std::strerror(errno));
        return -1;
    }
    if (std::fflush(out) != 0) {
        log_message(3, "Unable to write output: %s", std::strerror(errno));
        return -1;
    }
    return 0;
}
