#include "util/file_str_pieces.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

namespace crelm::util {
namespace {

constexpr std::size_t kBlock = std::size_t{1} << 20;
constexpr std::size_t kPieceLimit = 4095;  // what fgets gives with a 4096-byte buffer

ssize_t read_more(int from, char* into, std::size_t room) {
    ssize_t got = 0;
    do {
        got = ::read(from, into, room);
    } while (got < 0 && errno == EINTR);
    return got;
}

// The length of the piece at the start of bytes, or 0 when more bytes must be
// read before the piece can be told.
std::size_t piece_length(const char* bytes, std::size_t available, bool at_end) {
    const std::size_t span = available < kPieceLimit ? available : kPieceLimit;
    const void* newline = std::memchr(bytes, '\n', span);
    if (newline != nullptr)
        return static_cast<std::size_t>(static_cast<const char*>(newline) - bytes) + 1;
    if (available >= kPieceLimit)
        return kPieceLimit;
    return at_end ? available : 0;
}

bool write_run(std::FILE* to, const char* bytes, std::size_t size) {
    return size == 0 || std::fwrite(bytes, 1, size, to) == size;
}

// Judges and copies the whole pieces among the first filled bytes; returns
// how many bytes were consumed (the rest is the start of a piece that needs
// more input), or none when a write failed.
struct Consumed {
    std::size_t bytes;
    bool written;
};

Consumed copy_whole_pieces(const char* buffer, std::size_t filled, bool at_end, std::FILE* to,
                           const PieceFilter& filter) {
    std::size_t position = 0;
    std::size_t run = 0;  // start of the kept bytes not yet written
    while (position < filled) {
        const std::size_t length = piece_length(buffer + position, filled - position, at_end);
        if (length == 0)
            break;
        if (filter && filter(std::string_view(buffer + position, length))) {
            if (!write_run(to, buffer + run, position - run))
                return {position, false};
            run = position + length;
        }
        position += length;
    }
    return {position, write_run(to, buffer + run, position - run)};
}

}  // namespace

PieceCopy copy_kept_pieces(int from, std::FILE* to, const PieceFilter& filter) {
    // Room for a whole block behind the unfinished piece kept from the last one.
    std::vector<char> buffer(kBlock + kPieceLimit);
    std::size_t filled = 0;
    for (;;) {
        const ssize_t got = read_more(from, buffer.data() + filled, buffer.size() - filled);
        if (got < 0)
            return PieceCopy::read_failed;
        filled += static_cast<std::size_t>(got);
        const bool at_end = got == 0;
        const Consumed consumed = copy_whole_pieces(buffer.data(), filled, at_end, to, filter);
        if (!consumed.written)
            return PieceCopy::write_failed;
        if (at_end)
            return PieceCopy::done;
        std::memmove(buffer.data(), buffer.data() + consumed.bytes, filled - consumed.bytes);
        filled -= consumed.bytes;
    }
}

}  // namespace crelm::util
