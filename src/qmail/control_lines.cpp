#include "qmail/control_lines.h"
#include "util/io_block.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <optional>

#include "util/file_str.h"
#include "util/held_lines.h"
#include "util/unique_fd.h"

namespace crelm::qmail {
namespace {

// The same search in the lines a batch holds for the file.
bool table_holds_line(const crelm::util::LineTable& table, const std::string& line) {
    if (line.find('\n') != std::string::npos)
        return ("\n" + table.text()).find("\n" + line + "\n") != std::string::npos;
    return !table.equal_to(line).empty();
}

// Whether some line of the file equals line; nullopt when it cannot be read.
// The file is scanned as if a newline preceded it, for "\n<line>\n"; the
// tail of each block is carried over so that a line split between two reads
// is still seen.
std::optional<bool> holds_line(const char* path, const std::string& line) {
    if (const crelm::util::LineTable* table = crelm::util::held_lines(path))
        return table_holds_line(*table, line);
    const crelm::util::UniqueFd fd(::open(path, O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!fd.valid()) {
        return std::nullopt;
    }
    const std::string needle = "\n" + line + "\n";
    const std::size_t block = crelm::util::io_block_for(fd.get());
    const std::unique_ptr<char[]> buffer = crelm::util::io_buffer(needle.size() + block);
    buffer[0] = '\n';
    std::size_t held = 1;
    for (;;) {
        const ssize_t got = ::read(fd.get(), buffer.get() + held, block);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            return std::nullopt;
        }
        if (got == 0) {
            break;
        }
        held += static_cast<std::size_t>(got);
        if (::memmem(buffer.get(), held, needle.data(), needle.size()) != nullptr) {
            return true;
        }
        const std::size_t carry = std::min(held, needle.size() - 1);
        std::copy(buffer.get() + held - carry, buffer.get() + held, buffer.get());
        held = carry;
    }
    // A last line without its newline.
    const std::size_t tail = needle.size() - 1;
    return held >= tail && std::equal(needle.begin(), needle.begin() + static_cast<std::ptrdiff_t>(tail),
                                      buffer.get() + held - tail);
}

}  // namespace

std::optional<bool> file_holds_line(const char* path, const std::string& line) {
    return holds_line(path, line);
}

bool remove_line(const char* path, const std::string& line) {
    return file_str_one(path, line, LineAction::remove_exact, LinePosition::anywhere) == 0;
}

bool remove_line_if_present(const char* path, const std::string& line) {
    const std::optional<bool> present = holds_line(path, line);
    return (present && !*present) || remove_line(path, line);
}

LineRemoval take_line_out(const char* path, const std::string& line, bool every_time) {
    struct stat info {};
    const bool missing = ::lstat(path, &info) != 0 && errno == ENOENT;
    const bool removed = every_time ? remove_line(path, line) : remove_line_if_present(path, line);
    if (removed)
        return LineRemoval::taken_out;
    return missing ? LineRemoval::no_file : LineRemoval::failed;
}

bool remove_lines_containing(const char* path, const std::vector<std::string>& texts, crelm::util::FileStamp* left,
                             std::string_view held_by_all) {
    if (left != nullptr)
        return file_str_stamped(path, texts, LineAction::remove_pattern, LinePosition::anywhere, *left,
                                held_by_all) == 0;
    return file_str(path, texts, LineAction::remove_pattern, LinePosition::anywhere, held_by_all) == 0;
}

bool append_line(const char* path, const std::string& line) {
    return file_str_one(path, line, LineAction::add, LinePosition::end) == 0;
}

bool insert_line_at_top(const char* path, const std::string& line) {
    return file_str_one(path, line, LineAction::add, LinePosition::start) == 0;
}

LineOnTop put_line_on_top_once(const char* path, const std::string& line, bool* was_there) {
    struct stat info {};
    if (::lstat(path, &info) != 0 && errno == ENOENT)
        return LineOnTop::no_file;
    return file_str_on_top(path, line, {}, was_there) == 0 ? LineOnTop::placed : LineOnTop::failed;
}

}  // namespace crelm::qmail
