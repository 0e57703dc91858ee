#include "util/file_str.h"

#include "runtime/log.h"
#include "runtime/saved_errno.h"
#include "util/file_lock.h"
#include "util/file_stamp.h"
#include "util/file_str_pieces.h"
#include "util/held_lines.h"
#include "util/line_writer.h"
#include "util/nofollow.h"
#include "util/stdio_file.h"
#include "util/temp_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

using crelm::util::ParentDir;
using crelm::util::PieceCopy;
using crelm::util::StdioFile;
using crelm::util::TempFile;

namespace {

constexpr std::size_t kPathBuffer = 4096;

// The edited file: its path for messages, and its directory and name,
// reached without following a link a mail user planted.
struct Target {
    const std::string& path;
    ParentDir dir;
    int dir_fd() const { return dir.fd.get(); }
    const char* name() const { return dir.name.c_str(); }
};

// The file as it was before the edit; null when it did not exist.
using Before = const struct stat*;

int failed(const char* format, const std::string& path) {
    report_error(0, 0, format, path.c_str(), std::strerror(errno));
    return 1;
}

StdioFile open_stream(int fd, const char* mode) {
    if (fd < 0)
        return nullptr;
    std::FILE* stream = ::fdopen(fd, mode);
    if (stream == nullptr) {
        const crelm::SavedErrno kept;
        ::close(fd);
    }
    return StdioFile(stream);
}

crelm::util::UniqueFd open_source(const Target& target) {
    return crelm::util::UniqueFd(::openat(target.dir_fd(), target.name(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
}

std::string temp_path_of(const std::string& path) {
    return path + ".tmp";
}

// The unique suffix ".XXXXXX" that the temporary file's name gets after
// "<path>.tmp".
constexpr std::size_t kUniqueSuffix = 7;

// The temporary file and its stream; the stream is null when either failed.
struct TempOutput {
    TempFile file;
    StdioFile stream;
};

// The temporary file has a name of its own ("<path>.tmp.XXXXXX", mode 0600
// until it gets the file's mode), so that no other writer can remove or
// replace it; what killed edits of the file left is removed first.
TempOutput open_temp(const Target& target) {
    if (temp_path_of(target.path).size() + kUniqueSuffix >= kPathBuffer) {
        errno = ENAMETOOLONG;
        return {TempFile::none(), nullptr};
    }
    TempFile file = crelm::util::create_temporary_beside(target.dir_fd(), target.dir.name, target.path);
    StdioFile stream = open_stream(file.release_fd(), "w");
    return {std::move(file), std::move(stream)};
}

// The mode of a file this call creates: that of a new stream file, 0666
// less the umask.
mode_t new_file_mode() {
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return 0666 & ~mask;
}

int give_back_owner_mode(int fd, Before before, const std::string& path) {
    if (before == nullptr)
        return ::fchmod(fd, new_file_mode()) == 0 ? 0 : failed("file_str: ERROR: Unable to chmod file %s: %s", path);
    if (::fchown(fd, before->st_uid, before->st_gid) != 0)
        return failed("file_str: ERROR: Unable to chown file %s: %s", path);
    if (::fchmod(fd, before->st_mode & 07777) != 0)
        return failed("file_str: ERROR: Unable to chmod file %s: %s", path);
    return 0;
}

// Owner and mode go onto the temporary file's own descriptor before it is
// renamed, so that nothing is ever changed through a name in between. The
// content reaches the disk before the rename, and the rename before the
// call returns: a power cut leaves the old file or the new one.
int finish_temp(TempOutput& temp, Before before, const Target& target, const char* rename_message) {
    if (std::fflush(temp.stream.get()) != 0 || ::fsync(::fileno(temp.stream.get())) != 0)
        return failed("Unable to close file %s: %s\n", temp.file.path());
    if (give_back_owner_mode(::fileno(temp.stream.get()), before, target.path) != 0)
        return 1;
    if (crelm::util::close_stream(temp.stream) != 0)
        return failed("Unable to close file %s: %s\n", temp.file.path());
    if (temp.file.commit_to(target.dir.name) != 0)
        return failed(rename_message, target.path);
    return 0;
}

std::string_view without_newline(std::string_view line) {
    return !line.empty() && line.back() == '\n' ? line.substr(0, line.size() - 1) : line;
}

bool matches(std::string_view piece, const std::string& given, LineAction action, LinePosition position) {
    const std::string_view bare = without_newline(piece);
    if (action == LineAction::remove_exact)
        return bare == without_newline(given);
    switch (position) {
    case LinePosition::start:
        return piece.starts_with(given);
    case LinePosition::end:
        return bare.ends_with(given);
    case LinePosition::anywhere:
        return piece.find(given) != std::string_view::npos;
    }
    return false;
}

bool is_removed(std::string_view piece, const std::vector<std::string>& lines, LineAction action,
                LinePosition position) {
    for (const std::string& given : lines)
        if (matches(piece, given, action, position))
            return true;
    return false;
}

// Whether text (not empty) is part of every given line: only then can the
// lines that hold it stand for those that hold a given line.
bool held_in_all(std::string_view text, const std::vector<std::string>& lines) {
    if (text.empty())
        return false;
    for (const std::string& given : lines)
        if (given.find(text) == std::string::npos)
            return false;
    return true;
}

// Every piece that is left out holds a given line (exactly) or a pattern, so
// only the lines where one is found need to be judged; an empty exact line
// gives no such text to look for, and then every piece is judged. A text
// that the caller knows every such piece to hold is searched for alone.
std::vector<std::string> markers_of(const std::vector<std::string>& lines, LineAction action,
                                    std::string_view held_by_every_line) {
    if (held_in_all(held_by_every_line, lines))
        return {std::string(held_by_every_line)};
    std::vector<std::string> markers;
    for (const std::string& given : lines) {
        const std::string_view marker = action == LineAction::remove_pattern ? given : without_newline(given);
        if (marker.empty())
            return {};
        markers.emplace_back(marker);
    }
    return markers;
}

PieceCopy copy_leaving_out(int from, std::FILE* to, const crelm::util::PieceFilter& removed,
                           const std::vector<std::string>& lines, LineAction action,
                           std::string_view held_by_every_line) {
    const std::vector<std::string> markers = markers_of(lines, action, held_by_every_line);
    if (markers.empty())
        return crelm::util::copy_kept_pieces(from, to, removed);
    return crelm::util::copy_kept_pieces(from, to, removed, markers);
}

int remove_lines(const Target& target, const std::vector<std::string>& lines, LineAction action, LinePosition position,
                 Before before, std::string_view held_by_every_line) {
    crelm::util::UniqueFd source = open_source(target);
    if (!source.valid())
        return failed("Unable to open file %s: %s\n", target.path);
    TempOutput temp = open_temp(target);
    if (!temp.stream)
        return failed("Unable to open file %s: %s\n", temp_path_of(target.path));
    const auto removed = [&](std::string_view piece) { return is_removed(piece, lines, action, position); };
    const PieceCopy copied =
        copy_leaving_out(source.get(), temp.stream.get(), removed, lines, action, held_by_every_line);
    if (copied == PieceCopy::write_failed)
        report_error(1, 1, "cannot write a line to %s.tmp", target.path.c_str());
    if (copied == PieceCopy::read_failed)
        return failed("Unable to read line from file: %s: %s\n", target.path);
    if (source.close() != 0)
        return failed("Unable to close file %s: %s\n", target.path);
    return finish_temp(temp, before, target, "Error while rename file %s: %s\n");
}

// The old lines that a rewrite leaves out, and whether it met one; with
// rewrite, what becomes of the other old lines; with held_by_every_line,
// what every line that the edit leaves out or rewrites holds.
struct LeftOut {
    const std::vector<std::string>& lines;
    bool met = false;
    const crelm::util::LineRewrite* rewrite = nullptr;
    std::string_view held_by_every_line = {};
};

// A piece of the old content that is a whole line shorter than a piece
// (4095 bytes) goes through rewrite; a longer line is kept as it is.
crelm::util::LineFate rewritten_piece(const crelm::util::LineRewrite& rewrite, std::string_view piece, bool starts_line,
                                      std::string& replaced) {
    const bool with_newline = !piece.empty() && piece.back() == '\n';
    if (!starts_line || (!with_newline && piece.size() >= 4095))
        return crelm::util::LineFate::keep;
    const crelm::util::LineFate fate = rewrite.line(without_newline(piece), replaced);
    if (fate == crelm::util::LineFate::replace && with_newline)
        replaced.push_back('\n');
    return fate;
}

// The texts whose lines a rewrite on top judges (the others it keeps as
// they are): a left-out line's or the one every such line holds, and the
// rewrite's needle; none, so that every line is judged, when one of them
// is empty. left_out holds a rewrite.
std::vector<std::string> rewrite_markers(const LeftOut& left_out) {
    std::vector<std::string> markers =
        markers_of(left_out.lines, LineAction::remove_exact, left_out.held_by_every_line);
    const std::string& needle = left_out.rewrite->needle;
    if (markers.empty() || needle.empty())
        return {};
    if (!held_in_all(left_out.held_by_every_line, left_out.lines) ||
        needle.find(left_out.held_by_every_line) == std::string::npos)
        markers.push_back(needle);
    return markers;
}

// The copy of the old content that leaves out the lines of left_out and
// rewrites the others: only the lines that hold a left-out line or the
// rewrite's needle are judged, unless one of them is empty.
PieceCopy copy_rewriting(int from, std::FILE* to, LeftOut& left_out) {
    const crelm::util::LineRewrite& rewrite = *left_out.rewrite;
    const crelm::util::PieceEdit edit = [&](std::string_view piece, bool starts_line, std::string& replaced) {
        if (is_removed(piece, left_out.lines, LineAction::remove_exact, LinePosition::anywhere)) {
            left_out.met = true;
            return crelm::util::LineFate::drop;
        }
        return rewritten_piece(rewrite, piece, starts_line, replaced);
    };
    const std::vector<std::string> markers = rewrite_markers(left_out);
    if (markers.empty())
        return crelm::util::copy_edited_pieces(from, to, edit);
    return crelm::util::copy_edited_pieces(from, to, edit, markers);
}

// The old content after the new lines at the top; with left_out, the old
// lines equal to one of those are left out (the new lines among them, so
// that each is there once) and the others rewritten as it says.
int copy_old_contents(const Target& target, std::FILE* to, const std::string& temp_path, LeftOut* left_out) {
    crelm::util::UniqueFd source = open_source(target);
    if (!source.valid())
        return failed("Unable to open file %s: %s\n", target.path);
    const auto copy = [&] {
        if (left_out == nullptr)
            return crelm::util::copy_kept_pieces(source.get(), to);
        if (left_out->rewrite != nullptr)
            return copy_rewriting(source.get(), to, *left_out);
        const auto removed = [&](std::string_view piece) {
            const bool out = is_removed(piece, left_out->lines, LineAction::remove_exact, LinePosition::anywhere);
            left_out->met = left_out->met || out;
            return out;
        };
        return copy_leaving_out(source.get(), to, removed, left_out->lines, LineAction::remove_exact,
                                left_out->held_by_every_line);
    };
    const PieceCopy copied = copy();
    if (copied == PieceCopy::write_failed)
        return failed("Unable to fputs to file %s: %s\n", temp_path);
    if (copied == PieceCopy::read_failed)
        return failed("Unable to read line from file: %s: %s\n", target.path);
    return 0;
}

int add_at_top(const Target& target, const std::vector<std::string>& lines, Before before, LeftOut* left_out) {
    TempOutput temp = open_temp(target);
    if (!temp.stream)
        return failed("Unable to open file %s: %s\n", temp_path_of(target.path));
    if (write_lines(temp.stream.get(), lines) != 0)
        return failed("Unable to fputs to file %s: %s\n", temp.file.path());
    if (before != nullptr && copy_old_contents(target, temp.stream.get(), temp.file.path(), left_out) != 0)
        return 1;
    return finish_temp(temp, before, target, "Unable to rename file %s: %s\n");
}

// A failed append takes back what it wrote (a full disk can take part of a
// line): the file keeps its old length, or goes again if this call made it.
// The stream is closed first, so that nothing it still buffers reaches the
// file afterwards; the lock keeps other editors out meanwhile.
void take_back_append(const Target& target, StdioFile& out, Before before) {
    const int saved = errno;
    crelm::util::UniqueFd file(::fcntl(::fileno(out.get()), F_DUPFD_CLOEXEC, 0));
    crelm::util::close_stream(out);
    if (before == nullptr)
        ::unlinkat(target.dir_fd(), target.name(), 0);
    else if (file.valid())
        (void)::ftruncate(file.get(), before->st_size);
    errno = saved;
}

// Whether the file open on fd ends in the middle of a line: its last byte
// (if any) is not a newline. Appending then would glue the first new line
// onto the last old one ("x.testa.test").
bool ends_without_newline(int fd) {
    struct stat info {};
    char last = '\n';
    return ::fstat(fd, &info) == 0 && info.st_size > 0 && ::pread(fd, &last, 1, info.st_size - 1) == 1 &&
           last != '\n';
}

int write_appended(std::FILE* out, const std::vector<std::string>& lines) {
    if (ends_without_newline(::fileno(out)) && std::fputc('\n', out) == EOF)
        return -1;
    return write_lines(out, lines);
}

int append_lines(const Target& target, const std::vector<std::string>& lines, Before before) {
    const int flags = O_RDWR | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC;
    StdioFile out = open_stream(::openat(target.dir_fd(), target.name(), flags, 0666), "a");
    if (!out)
        return failed("Unable to open file %s: %s\n", target.path);
    // The lines reach the disk (and a new file's name its directory) before
    // the call returns.
    if (write_appended(out.get(), lines) != 0 || std::fflush(out.get()) != 0 || ::fsync(::fileno(out.get())) != 0 ||
        (before == nullptr && crelm::util::sync_directory(target.dir_fd()) != 0)) {
        take_back_append(target, out, before);
        return failed("Unable to write data into file %s: %s\n", target.path);
    }
    if (give_back_owner_mode(::fileno(out.get()), before, target.path) != 0)
        return 1;
    if (crelm::util::close_stream(out) != 0)
        return failed("Unable to close file %s: %s\n", target.path);
    return 0;
}

// Whether a rewrite on top judges piece, as the copy in copy_rewriting does.
class RewriteJudge {
public:
    explicit RewriteJudge(const LeftOut& left_out) : markers_(rewrite_markers(left_out)) {}

    bool judges(std::string_view piece) const {
        if (markers_.empty())
            return true;
        for (const std::string& marker : markers_)
            if (piece.find(marker) != std::string_view::npos)
                return true;
        return false;
    }

private:
    std::vector<std::string> markers_;
};

using crelm::util::LineTable;

// Drops every line equal to one of lines (each compared without its
// newline), found through the table's index: whether there was one.
bool drop_equal_lines(const LineTable& table, const std::vector<std::string>& lines, LineTable::Edit& changes) {
    std::vector<LineTable::Id> dropped;
    for (const std::string& given : lines)
        for (const LineTable::Id id : table.equal_to(without_newline(given)))
            if (std::find(dropped.begin(), dropped.end(), id) == dropped.end())
                dropped.push_back(id);
    for (const LineTable::Id id : dropped)
        changes.drop(id);
    return !dropped.empty();
}

// The edit made on the table held for the file (util/held_lines.h): the
// same lines kept, left out, rewritten and put on top as the rewrite of the
// file would. Every line of the table is whole and shorter than a piece, so
// each is judged as one piece that begins a line. The changes of the edit,
// or false when the table cannot take it: an append at the end, or a line
// that would be a piece or longer.
bool held_changes(const LineTable& table, const std::vector<std::string>& lines, LineAction action,
                  LinePosition position, LeftOut& left_out, LineTable::Edit& changes) {
    bool fits = true;
    const auto on_top = [&](std::string text) {
        if (text.empty() || text.back() != '\n')
            text.push_back('\n');
        fits = fits && text.size() < LineTable::kLongestLine;
        changes.put_on_top(std::move(text));
    };
    if (action == LineAction::add) {
        if (position != LinePosition::start)
            return false;
        for (auto line = lines.rbegin(); line != lines.rend(); ++line)
            on_top(*line);
        return fits;
    }
    if (action == LineAction::remove_exact) {
        drop_equal_lines(table, lines, changes);
        return true;
    }
    if (action != LineAction::add_once_at_top) {
        table.for_each([&](LineTable::Id id, std::string_view piece) {
            if (is_removed(piece, lines, action, position))
                changes.drop(id);
            return false;
        });
        return true;
    }
    if (left_out.rewrite == nullptr) {
        left_out.met = drop_equal_lines(table, left_out.lines, changes);
        on_top(lines.front());
        return fits;
    }
    const RewriteJudge judge(left_out);
    table.for_each([&](LineTable::Id id, std::string_view piece) {
        if (is_removed(piece, left_out.lines, LineAction::remove_exact, LinePosition::anywhere)) {
            left_out.met = true;
            changes.drop(id);
            return false;
        }
        if (!judge.judges(piece))
            return false;
        std::string replaced;
        switch (rewritten_piece(*left_out.rewrite, piece, true, replaced)) {
        case crelm::util::LineFate::keep:
            break;
        case crelm::util::LineFate::drop:
            changes.drop(id);
            break;
        case crelm::util::LineFate::replace:
            fits = fits && !replaced.empty() && replaced.back() == '\n' && replaced.size() < LineTable::kLongestLine;
            changes.replace(id, std::move(replaced));
            break;
        }
        return false;
    });
    on_top(lines.front());
    return fits;
}

// The table's text written to the file, as a rewrite writes it, and the
// table given up: from now on the file is edited.
int give_up_held(LineTable& table, const Target& target, Before before) {
    TempOutput temp = open_temp(target);
    if (!temp.stream)
        return failed("Unable to open file %s: %s\n", temp_path_of(target.path));
    if (std::fflush(temp.stream.get()) != 0 || !table.write_to(::fileno(temp.stream.get())))
        return failed("Unable to fputs to file %s: %s\n", temp.file.path());
    if (finish_temp(temp, before, target, "Unable to rename file %s: %s\n") != 0)
        return 1;
    if (!table.give_up())
        return failed("Unable to write data into file %s: %s\n", target.path);
    crelm::util::release_held_lines();
    return 0;
}

// The edit on the held table: 0 or 1 as the edit of the file, or -1 when
// the table was given up and the file is to be edited instead.
int edit_held(LineTable& table, const Target& target, const std::vector<std::string>& lines, LineAction action,
              LinePosition position, Before before, LeftOut& left_out) {
    LineTable::Edit changes(table);
    if (!held_changes(table, lines, action, position, left_out, changes)) {
        left_out.met = false;
        return give_up_held(table, target, before) == 0 ? -1 : 1;
    }
    if (!changes.commit())
        return failed("Unable to write data into file %s: %s\n", target.path);
    return 0;
}

int edit(const Target& target, const std::vector<std::string>& lines, LineAction action, LinePosition position,
         Before before, LeftOut& left_out) {
    if (action == LineAction::add_once_at_top)
        return add_at_top(target, lines, before, &left_out);
    if (action != LineAction::add)
        return remove_lines(target, lines, action, position, before, left_out.held_by_every_line);
    if (position == LinePosition::start)
        return add_at_top(target, lines, before, nullptr);
    return append_lines(target, lines, before);
}

int release(FileLock& lock, const std::string& path) {
    if (unlock_file(lock) != 0)
        return failed("Error occurred while unlocking the file %s: %s\n", path);
    return 0;
}

bool examine(const Target& target, struct stat& before) {
    return target.dir.fd.valid() && ::fstatat(target.dir_fd(), target.name(), &before, AT_SYMLINK_NOFOLLOW) == 0;
}

// A line of a line file is one line: a newline may only end it, and a
// carriage return or NUL inside it would be read differently by each
// reader. An empty pattern would match, and so remove, every line.
const char* malformed(const std::vector<std::string>& lines, LineAction action) {
    for (const std::string& line : lines) {
        const std::string_view text = without_newline(line);
        if (text.find_first_of(std::string_view("\n\r\0", 3)) != std::string_view::npos)
            return "a line holds a newline, carriage return or NUL";
        if (action == LineAction::remove_pattern && line.empty())
            return "an empty pattern matches every line";
    }
    return nullptr;
}

}  // namespace

namespace {

// left_out: for add_once_at_top, the old lines to leave out.
int edit_under_lock(const std::string& path, const std::vector<std::string>& lines, LineAction action,
                    LinePosition position, crelm::util::FileStamp* left,
                    LeftOut& left_out) {
    const char* why = malformed(lines, action);
    if (why == nullptr)
        why = malformed(left_out.lines, action);
    if (why != nullptr) {
        errno = EINVAL;
        report_error(0, 0, "Refused to edit file %s: %s\n", path.c_str(), why);
        return 1;
    }
    FileLock lock = lock_file(path, LockPlace::lock_directory);
    if (!lock.held())
        return failed("Error occurred while locking the file %s: %s\n", path);
    const Target target{path, crelm::util::open_parent(path)};
    struct stat before {};
    const bool existed = examine(target, before);
    if (!existed && errno != ENOENT) {
        // The file is left locked: it is in a state this run cannot judge.
        lock.keep_until_exit();
        return failed("file_str: Unable to stat file %s: %s\n", path);
    }
    if (!existed && action == LineAction::remove_exact) {
        release(lock, path);
        return 1;
    }
    if (existed && S_ISLNK(before.st_mode))
        errno = ELOOP;
    if ((existed && S_ISLNK(before.st_mode)) || !target.dir.fd.valid())
        return failed("Unable to open file %s: %s\n", path);
    int result = -1;
    if (LineTable* table = crelm::util::held_lines(path); table != nullptr && existed)
        result = edit_held(*table, target, lines, action, position, &before, left_out);
    if (result < 0)
        result = edit(target, lines, action, position, existed ? &before : nullptr, left_out);
    // Taken while the lock still keeps every other editor out.
    if (left != nullptr && result == 0)
        *left = crelm::util::stamp_of(path);
    if (release(lock, path) != 0)
        return 1;
    return result;
}

}  // namespace

int file_str(const std::string& path, const std::vector<std::string>& lines, LineAction action, LinePosition position,
             std::string_view held_by_every_line) {
    LeftOut left_out{lines, false, nullptr, held_by_every_line};
    return edit_under_lock(path, lines, action, position, nullptr, left_out);
}

int file_str_stamped(const std::string& path, const std::vector<std::string>& lines, LineAction action,
                     LinePosition position, crelm::util::FileStamp& left, std::string_view held_by_every_line) {
    left = crelm::util::FileStamp{};
    LeftOut left_out{lines, false, nullptr, held_by_every_line};
    return edit_under_lock(path, lines, action, position, &left, left_out);
}

int file_str_on_top(const std::string& path, const std::string& line, const std::vector<std::string>& also_left_out,
                    bool* met_old, const crelm::util::LineRewrite* also_rewritten,
                    std::string_view held_by_every_line) {
    std::vector<std::string> lines{line};
    lines.insert(lines.end(), also_left_out.begin(), also_left_out.end());
    LeftOut left_out{lines, false, also_rewritten, held_by_every_line};
    const int result = edit_under_lock(path, {line}, LineAction::add_once_at_top, LinePosition::start, nullptr, left_out);
    if (met_old != nullptr)
        *met_old = left_out.met;
    return result;
}

int file_str_one(const std::string& path, const std::string& line, LineAction action, LinePosition position) {
    return file_str(path, std::vector<std::string>{line}, action, position);
}
