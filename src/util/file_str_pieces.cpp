#include "util/file_str_pieces.h"
#include "util/fd_copy.h"
#include "util/io_block.h"

#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

namespace crelm::util {
namespace {

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

// A run this long goes to the file in one write of its own (after what the
// stream holds) instead of being cut up by the stream's buffer.
constexpr std::size_t kDirectRun = kIoBlock;

bool write_run(std::FILE* to, const char* bytes, std::size_t size) {
    if (size >= kDirectRun)
        return std::fflush(to) == 0 && write_all(::fileno(to), std::string_view(bytes, size));
    return size == 0 || std::fwrite(bytes, 1, size, to) == size;
}

// Judges and copies the whole pieces among the first filled bytes; returns
// how many bytes were consumed (the rest is the start of a piece that needs
// more input), or none when a write failed.
struct Consumed {
    std::size_t bytes;
    bool written;
};

// The filled bytes of a block and what the copy has still to write of them.
class BlockCopy {
public:
    // line_start: whether the first filled byte begins a line.
    BlockCopy(const char* buffer, std::FILE* to, const PieceEdit& edit, bool line_start)
        : buffer_(buffer), to_(to), edit_(edit), line_start_(line_start) {}

    // Judges the piece at position: the kept bytes before a piece that goes
    // or changes are written, then its new text. false when a write failed.
    bool judge(std::size_t position, std::size_t length) {
        const bool starts_line = position == 0 ? line_start_ : buffer_[position - 1] == '\n';
        switch (edit_(std::string_view(buffer_ + position, length), starts_line, replaced_)) {
            case LineFate::keep:
                return true;
            case LineFate::drop:
                break;
            case LineFate::replace:
                if (!flush(position) || !write_run(to_, replaced_.data(), replaced_.size()))
                    return false;
                break;
        }
        if (!flush(position))
            return false;
        run_ = position + length;
        return true;
    }

    // Writes the kept bytes before end.
    bool flush(std::size_t end) {
        const bool written = write_run(to_, buffer_ + run_, end - run_);
        run_ = end;
        return written;
    }

private:
    const char* buffer_;
    std::FILE* to_;
    const PieceEdit& edit_;
    bool line_start_;
    std::size_t run_ = 0;  // start of the kept bytes not yet written
    std::string replaced_;
};

Consumed copy_whole_pieces(const char* buffer, std::size_t filled, bool at_end, BlockCopy& copy) {
    std::size_t position = 0;
    while (position < filled) {
        const std::size_t length = piece_length(buffer + position, filled - position, at_end);
        if (length == 0)
            break;
        if (!copy.judge(position, length))
            return {position, false};
        position += length;
    }
    return {position, copy.flush(position)};
}

// The markers worth searching for: a line that holds a marker which
// contains another one holds that other one too, so only the other one is
// searched (a record and the tail that ends it: one scan instead of two).
std::vector<std::string> searched_markers(const std::vector<std::string>& markers) {
    std::vector<std::string> searched;
    for (std::size_t i = 0; i < markers.size(); ++i) {
        const auto holds_other = [&](std::size_t j) {
            return j != i && markers[i].find(markers[j]) != std::string::npos &&
                   (markers[i] != markers[j] || j < i);
        };
        bool redundant = false;
        for (std::size_t j = 0; j < markers.size() && !redundant; ++j)
            redundant = holds_other(j);
        if (!redundant)
            searched.push_back(markers[i]);
    }
    return searched;
}

// Where each marker is next found in the filled bytes of the buffer: a
// marker is searched again only once the copy has passed its last hit, so
// that each one costs a single scan of the block however often the others
// are found.
class MarkerHits {
public:
    explicit MarkerHits(const std::vector<std::string>& markers)
        : markers_(searched_markers(markers)), next_(markers_.size()), searched_(markers_.size()) {}

    // The buffer has new content: every marker is searched afresh.
    void forget() { std::fill(searched_.begin(), searched_.end(), false); }

    // The first byte at or after position where a marker starts, or npos.
    std::size_t first(std::string_view text, std::size_t position) {
        std::size_t first_hit = std::string_view::npos;
        for (std::size_t i = 0; i < markers_.size(); ++i) {
            if (!searched_[i] || next_[i] < position) {
                next_[i] = find(text, position, markers_[i]);
                searched_[i] = true;
            }
            first_hit = std::min(first_hit, next_[i]);
        }
        return first_hit;
    }

private:
    static std::size_t find(std::string_view text, std::size_t position, const std::string& marker) {
        if (position >= text.size())
            return std::string_view::npos;
        const void* hit = ::memmem(text.data() + position, text.size() - position, marker.data(), marker.size());
        return hit == nullptr ? std::string_view::npos : static_cast<std::size_t>(static_cast<const char*>(hit) - text.data());
    }

    const std::vector<std::string> markers_;
    std::vector<std::size_t> next_;
    std::vector<bool> searched_;
};

// Where a line of the filled bytes that holds no marker may be passed over
// in one step: the start of the line that holds hit (or, with no hit, of
// the last line, whose bytes may still lack their end), never before
// position, which is where a piece starts.
std::size_t line_start_before(const char* buffer, std::size_t position, std::size_t limit) {
    const void* newline = ::memrchr(buffer + position, '\n', limit - position);
    return newline == nullptr ? position : static_cast<std::size_t>(static_cast<const char*>(newline) - buffer) + 1;
}

// copy_whole_pieces for a filter that only rejects pieces holding a marker:
// the pieces of the lines that hold a hit are judged, every other byte is
// kept as it comes. A last line that has no end yet is consumed in whole
// pieces, as the plain walk would.
Consumed copy_marked_pieces(const char* buffer, std::size_t filled, bool at_end, BlockCopy& copy,
                            MarkerHits& hits) {
    const std::string_view text(buffer, filled);
    std::size_t position = 0;
    while (position < filled) {
        const std::size_t hit = hits.first(text, position);
        if (hit == std::string_view::npos) {
            if (at_end) {
                position = filled;
                break;
            }
            position = line_start_before(buffer, position, filled);
            position += (filled - position) / kPieceLimit * kPieceLimit;
            break;
        }
        position = line_start_before(buffer, position, hit);
        while (position <= hit) {
            const std::size_t length = piece_length(buffer + position, filled - position, at_end);
            if (length == 0)
                return {position, copy.flush(position)};
            if (!copy.judge(position, length))
                return {position, false};
            position += length;
        }
    }
    return {position, copy.flush(position)};
}

// Everything from one descriptor to the stream, in large blocks.
PieceCopy copy_everything(int from, std::FILE* to) {
    const std::size_t size = io_block_for(from);
    const std::unique_ptr<char[]> buffer = io_buffer(size);
    for (;;) {
        const ssize_t got = read_more(from, buffer.get(), size);
        if (got < 0)
            return PieceCopy::read_failed;
        if (got == 0)
            return PieceCopy::done;
        if (!write_run(to, buffer.get(), static_cast<std::size_t>(got)))
            return PieceCopy::write_failed;
    }
}

// The block loop: reads behind the unfinished piece kept from the last
// block, and lets consume copy what it can of the filled bytes (the last
// flag tells whether the first of them begins a line).
template <typename Consume>
PieceCopy copy_in_blocks(int from, Consume consume) {
    // Room for a whole block behind the unfinished piece kept from the last one.
    const std::size_t size = io_block_for(from) + kPieceLimit;
    const std::unique_ptr<char[]> buffer = io_buffer(size);
    std::size_t filled = 0;
    bool line_start = true;
    for (;;) {
        const ssize_t got = read_more(from, buffer.get() + filled, size - filled);
        if (got < 0)
            return PieceCopy::read_failed;
        filled += static_cast<std::size_t>(got);
        const bool at_end = got == 0;
        const Consumed consumed = consume(buffer.get(), filled, at_end, line_start);
        if (!consumed.written)
            return PieceCopy::write_failed;
        if (at_end)
            return PieceCopy::done;
        if (consumed.bytes > 0)
            line_start = buffer[consumed.bytes - 1] == '\n';
        std::memmove(buffer.get(), buffer.get() + consumed.bytes, filled - consumed.bytes);
        filled -= consumed.bytes;
    }
}

PieceEdit as_edit(const PieceFilter& filter) {
    return [&filter](std::string_view piece, bool, std::string&) {
        return filter(piece) ? LineFate::drop : LineFate::keep;
    };
}

}  // namespace

PieceCopy copy_kept_pieces(int from, std::FILE* to, const PieceFilter& filter) {
    if (!filter)
        return copy_everything(from, to);
    return copy_edited_pieces(from, to, as_edit(filter));
}

PieceCopy copy_kept_pieces(int from, std::FILE* to, const PieceFilter& filter,
                           const std::vector<std::string>& markers) {
    return copy_edited_pieces(from, to, as_edit(filter), markers);
}

PieceCopy copy_edited_pieces(int from, std::FILE* to, const PieceEdit& edit) {
    return copy_in_blocks(from, [&](const char* buffer, std::size_t filled, bool at_end, bool line_start) {
        BlockCopy copy(buffer, to, edit, line_start);
        return copy_whole_pieces(buffer, filled, at_end, copy);
    });
}

PieceCopy copy_edited_pieces(int from, std::FILE* to, const PieceEdit& edit, const std::vector<std::string>& markers) {
    MarkerHits hits(markers);
    return copy_in_blocks(from, [&](const char* buffer, std::size_t filled, bool at_end, bool line_start) {
        hits.forget();
        BlockCopy copy(buffer, to, edit, line_start);
        return copy_marked_pieces(buffer, filled, at_end, copy, hits);
    });
}

}  // namespace crelm::util
