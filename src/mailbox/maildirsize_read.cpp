#include "mailbox/maildirsize_read.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <string_view>

#include "mailbox/maildir_count.h"
#include "mailbox/open_directory.h"
#include "runtime/log.h"

namespace {

// The delivery agent recounts the Maildir when "maildirsize" has grown to
// this size (too many delta lines to sum); so does the reader here, so that
// both see the same totals.
constexpr std::size_t kRecountSize = 5120;

bool read_maildirsize(const std::string& maildir, std::string& text) {
    const auto maildir_fd = crelm::mailbox::open_directory(maildir);
    if (!maildir_fd.valid())
        return false;
    crelm::util::UniqueFd file(
        openat(maildir_fd.get(), "maildirsize", O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat st;
    if (!file.valid() || fstat(file.get(), &st) != 0)
        return false;
    if (!S_ISREG(st.st_mode)) {
        errno = EINVAL;
        return false;
    }
    text.resize(kRecountSize);
    std::size_t got = 0;
    while (got < kRecountSize) {
        const ssize_t n = read(file.get(), text.data() + got, kRecountSize - got);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return false;
        if (n == 0)
            break;
        got += static_cast<std::size_t>(n);
    }
    if (got == kRecountSize) {
        errno = EFBIG;
        return false;
    }
    text.resize(got);
    return true;
}

bool parse_number(std::string_view& text, long long& value) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
        text.remove_prefix(1);
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc())
        return false;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return true;
}

// "<n>S", "<m>C" or both, comma-separated.
bool is_quota_header(std::string_view header) {
    if (header.empty())
        return false;
    while (!header.empty()) {
        const std::size_t comma = header.find(',');
        std::string_view item = header.substr(0, comma);
        header = comma == std::string_view::npos ? std::string_view() : header.substr(comma + 1);
        if (comma != std::string_view::npos && header.empty())
            return false;
        if (item.size() < 2 || (item.back() != 'S' && item.back() != 'C') || item[0] < '0' || item[0] > '9')
            return false;
        item.remove_suffix(1);
        long long quota = 0;
        if (!parse_number(item, quota) || !item.empty())
            return false;
    }
    return true;
}

bool is_blank(std::string_view line) { return line.find_first_not_of(" \t") == std::string_view::npos; }

bool add_delta_line(std::string_view line, long long& bytes, long long& count) {
    long long size_delta = 0;
    long long count_delta = 0;
    if (!parse_number(line, size_delta) || !parse_number(line, count_delta) || !is_blank(line))
        return false;
    return !__builtin_add_overflow(bytes, size_delta, &bytes) && !__builtin_add_overflow(count, count_delta, &count);
}

// Sums the size lines of a maildirsize text; false when it is unusable.
bool sum_maildirsize(std::string_view text, long long& bytes, long long& count) {
    const std::size_t header_end = text.find('\n');
    if (!is_quota_header(text.substr(0, header_end))) {
        log_message(LOG_ERR, "maildirsize quota header is corrupted. Please run maildir_mend utility to fix.");
        return false;
    }
    bytes = 0;
    count = 0;
    if (header_end == std::string_view::npos)
        return true;
    text.remove_prefix(header_end + 1);
    for (std::size_t end; (end = text.find('\n')) != std::string_view::npos; text.remove_prefix(end + 1))
        if (!is_blank(text.substr(0, end)) && !add_delta_line(text.substr(0, end), bytes, count))
            return false;
    return bytes >= 0 && count >= 0;
}

}  // namespace

bool maildirsize_read(const std::string& maildir, long long& bytes, long long& count, Recount recount) {
    std::string text;
    if (read_maildirsize(maildir, text)) {
        long long file_bytes = 0;
        long long file_count = 0;
        if (sum_maildirsize(text, file_bytes, file_count)) {
            bytes = file_bytes;
            count = file_count;
            return true;
        }
        errno = EINVAL;
    }
    if (recount == Recount::Never)
        return false;
    timespec latest{};
    return maildir_count(maildir, bytes, count, latest);
}
