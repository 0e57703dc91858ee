#include "util/line_rewrite.h"
#include "util/io_block.h"

#include "util/fd_copy.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace crelm::util {
namespace {

constexpr std::size_t kBlockSize = crelm::util::kIoBlock;
// A run of unchanged lines at least this long is written from where it was
// read rather than copied into the buffer first.
constexpr std::size_t kDirectRun = std::size_t{1} << 16;

// Output gathered into large writes.
class BlockWriter {
public:
    explicit BlockWriter(int fd) : fd_(fd) { buffer_.reserve(kBlockSize); }

    bool add(std::string_view text) {
        if (text.size() >= kDirectRun)
            return flush() && write_all(text);
        if (buffer_.size() + text.size() > kBlockSize && !flush())
            return false;
        buffer_.append(text);
        return true;
    }
    bool flush() {
        const bool written = write_all(buffer_);
        buffer_.clear();
        return written;
    }

private:
    bool write_all(std::string_view text) const { return crelm::util::write_all(fd_, text); }

    int fd_;
    std::string buffer_;
};

class LineStream {
public:
    LineStream(const LineRewrite& rewrite, BlockWriter& out) : rewrite_(rewrite), out_(out) {}

    // One line with its newline (or without, for the last bytes of the input).
    bool line(std::string_view text, bool with_newline) {
        const std::string_view bare = with_newline ? text.substr(0, text.size() - 1) : text;
        switch (rewrite_.line(bare, replaced_)) {
            case LineFate::keep:
                unterminated_ = !with_newline;
                return out_.add(text);
            case LineFate::replace:
                unterminated_ = !with_newline;
                return out_.add(replaced_) && (!with_newline || out_.add("\n"));
            case LineFate::drop:
                return true;
        }
        return true;
    }

    // The complete lines of text (which ends with a newline). Runs without
    // the needle are copied in one piece.
    bool complete_lines(std::string_view text) {
        while (!text.empty()) {
            std::size_t start = 0;
            if (!rewrite_.needle.empty()) {
                const std::size_t hit = text.find(rewrite_.needle);
                if (hit == std::string_view::npos)
                    return out_.add(text);
                const std::size_t before = text.rfind('\n', hit);
                start = before == std::string_view::npos ? 0 : before + 1;
                if (!out_.add(text.substr(0, start)))
                    return false;
            }
            const std::size_t end = text.find('\n', start) + 1;
            if (!line(text.substr(start, end - start), true))
                return false;
            text.remove_prefix(end);
        }
        return true;
    }

    // Whether the output ends with a line written without its newline.
    bool unterminated() const { return unterminated_; }

private:
    const LineRewrite& rewrite_;
    BlockWriter& out_;
    std::string replaced_;
    bool unterminated_ = false;
};

ssize_t read_some(int fd, char* into, std::size_t size) {
    ssize_t got = 0;
    do {
        got = ::read(fd, into, size);
    } while (got < 0 && errno == EINTR);
    return got;
}

}  // namespace

StreamFailure rewrite_stream(int in_fd, int out_fd, const LineRewrite& rewrite) {
    BlockWriter out(out_fd);
    LineStream lines(rewrite, out);
    // carry holds the start of a line that the previous read cut.
    std::string block(io_block_for(in_fd), '\0');
    std::size_t carry = 0;
    bool any_input = false;
    for (;;) {
        if (carry == block.size())
            block.resize(block.size() * 2);
        const ssize_t got = read_some(in_fd, block.data() + carry, block.size() - carry);
        if (got < 0)
            return StreamFailure::read;
        if (got == 0)
            break;
        any_input = true;
        const std::size_t filled = carry + static_cast<std::size_t>(got);
        const std::string_view text(block.data(), filled);
        const std::size_t last_newline = text.rfind('\n');
        const std::size_t complete = last_newline == std::string_view::npos ? 0 : last_newline + 1;
        if (!lines.complete_lines(text.substr(0, complete)))
            return StreamFailure::write;
        carry = filled - complete;
        std::memmove(block.data(), block.data() + complete, carry);
    }
    bool written = carry == 0 || lines.line(std::string_view(block.data(), carry), false);
    if (written && any_input && !rewrite.appended.empty()) {
        // A last line without its newline gets one before the added lines.
        written = !lines.unterminated() || out.add("\n");
        for (const std::string& added : rewrite.appended)
            written = written && out.add(added) && out.add("\n");
    }
    return written && out.flush() ? StreamFailure::none : StreamFailure::write;
}

}  // namespace crelm::util
