#include "session/input_buffer.h"

#include <sys/mman.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

namespace {

constexpr std::size_t kSmallestBuffer = 1024;

// A regular file's size is known: room for it, the zero byte and one more
// byte, so that the read which finds the end does not grow the buffer.
std::size_t first_capacity(std::FILE* stream) {
    struct stat status {};
    if (fstat(fileno(stream), &status) == 0 && S_ISREG(status.st_mode) && status.st_size > 0) {
        return std::max(kSmallestBuffer, static_cast<std::size_t>(status.st_size) + 2);
    }
    return kSmallestBuffer;
}

// A large document is read into huge pages where the system offers them:
// far fewer page faults while the buffer fills.
char* allocate_buffer(std::size_t capacity) {
    constexpr std::size_t kHugePage = 2 * 1024 * 1024;
    if (capacity < 2 * kHugePage) {
        return static_cast<char*>(std::malloc(capacity));
    }
    const std::size_t rounded = (capacity + kHugePage - 1) / kHugePage * kHugePage;
    void* memory = std::aligned_alloc(kHugePage, rounded);
    if (memory != nullptr) {
        madvise(memory, rounded, MADV_HUGEPAGE);  // only advice: failure changes nothing
    }
    return static_cast<char*>(memory);
}

bool grow(InputBuffer& buffer, std::size_t& capacity) {
    void* larger = std::realloc(buffer.get(), capacity * 2);
    if (larger == nullptr) {
        return false;
    }
    buffer.release();
    buffer.reset(static_cast<char*>(larger));
    capacity *= 2;
    return true;
}

}  // namespace

InputBuffer read_whole_stream(std::FILE* stream) {
    std::size_t capacity = first_capacity(stream);
    InputBuffer buffer(allocate_buffer(capacity));
    std::size_t length = 0;
    while (buffer) {
        const std::size_t room = capacity - 1 - length;
        const std::size_t got = std::fread(buffer.get() + length, 1, room, stream);
        length += got;
        if (got < room) {
            break;
        }
        if (!grow(buffer, capacity)) {
            return nullptr;
        }
    }
    if (!buffer || std::ferror(stream)) {
        return nullptr;
    }
    buffer.get()[length] = '\0';
    return buffer;
}
