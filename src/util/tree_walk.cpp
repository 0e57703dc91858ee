#include "util/tree_walk.h"

#include "runtime/log.h"
#include "runtime/shown_text.h"
#include "util/nofollow.h"
#include "util/unique_fd.h"
#include "util/walk_steps.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

using crelm::util::UniqueDir;
using crelm::util::UniqueFd;

namespace {

enum class OnFailure { end_program, report };

// Reports through report_error (ending the program when asked) and gives
// false, so that walkers can return its result.
bool walk_failure(OnFailure on_failure, const char* format, ...) __attribute__((format(printf, 2, 3)));

bool walk_failure(OnFailure on_failure, const char* format, ...) {
    const int saved = errno;
    char text[8192];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    errno = saved;
    report_error(on_failure == OnFailure::end_program ? 1 : 0, 1, "%s", text);
    return false;
}

// An entry of the walk: name inside the directory parent, shown as shown in
// messages.
struct Entry {
    int parent;
    const char* name;
    const char* shown;
    bool top;
};

struct Visitor {
    OnFailure on_failure;
    // A non-directory entry.
    std::function<bool(const Entry& entry, const struct stat& info)> file;
    // A directory once its entries are done; dir_fd is its own handle.
    std::function<bool(const Entry& entry, int dir_fd, TopDirectory itself)> directory;
};

// One directory on the way down from the top: its name in its parent, its
// identity (to know its parent again on the way up), its entries, read
// whole when it is entered so that no listing stays open below it, and,
// for the first levels, its handle, kept while the walk is below it.
struct Level {
    std::string name;
    std::string shown;  // the name as messages show it
    dev_t dev = 0;
    ino_t ino = 0;
    std::vector<crelm::util::ListedEntry> entries;
    std::size_t next = 0;
    UniqueFd held;
};

// The levels whose handles stay open while the walk is below them: a mail
// name's tree is four deep from its domain's directory, so its walk never
// reopens a parent through "..". Deeper levels are reopened and checked.
constexpr std::size_t kHeldLevels = 4;

constexpr int kDirectoryFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// The level of the directory open on fd, with its entries.
bool enter_level(int fd, const std::string& name, const char* shown, OnFailure on_failure, Level& level) {
    level = Level{name, shown, 0, 0, {}, 0, UniqueFd()};
    if (!crelm::util::read_directory_entries(fd, level.entries))
        return walk_failure(on_failure, "Unable to open dir %s: %s\n", shown, std::strerror(errno));
    return true;
}

// Leaves the level of the directory open on current for one below it:
// one of the first levels keeps its handle; a deeper one is closed and
// keeps its identity instead, to know it again through "..".
bool leave_level(UniqueFd& current, std::size_t depth, OnFailure on_failure, Level& level) {
    if (depth < kHeldLevels) {
        level.held = std::move(current);
        return true;
    }
    struct stat info {};
    if (::fstat(current.get(), &info) != 0)
        return walk_failure(on_failure, "Unable to open dir %s: %s\n", level.shown.c_str(), std::strerror(errno));
    level.dev = info.st_dev;
    level.ino = info.st_ino;
    return true;
}

// The parent of the directory open on fd: the directory the walk came down
// from, not one a mail user moved it into meanwhile. A held level is that
// directory's own handle; another is reopened through "..", and checked.
UniqueFd open_parent_level(int fd, Level& parent, const std::string& shown, OnFailure on_failure) {
    if (parent.held.valid())
        return std::move(parent.held);
    UniqueFd up = crelm::util::open_checked_parent(fd, parent.dev, parent.ino);
    if (!up.valid() && errno == ESTALE) {
        errno = 0;
        walk_failure(on_failure, "Directory %s was moved while it was walked\n", shown.c_str());
    } else if (!up.valid()) {
        walk_failure(on_failure, "Unable to open dir %s: %s\n", parent.shown.c_str(), std::strerror(errno));
    }
    return up;
}

// What an entry of the directory open on parent turned out to be when the
// walk reached it.
enum class Reached { gone, directory, other, failed };

// Opens the entry as a directory when it is one, without following a
// link; info describes any other entry. An entry the directory listed as a
// directory is opened at once (one system call less for each directory of
// a tree); one that changed since it was listed is looked at like the rest.
Reached reach_entry(int parent, const crelm::util::ListedEntry& entry, const char* shown, UniqueFd& below,
                    struct stat& info, OnFailure on_failure) {
    const char* name = entry.name.c_str();
    if (entry.type == DT_DIR) {
        below = UniqueFd(::openat(parent, name, kDirectoryFlags));
        if (below.valid())
            return Reached::directory;
        if (errno == ENOENT)
            return Reached::gone;
        if (errno != ENOTDIR && errno != ELOOP) {
            walk_failure(on_failure, "Unable to open dir %s: %s\n", shown, std::strerror(errno));
            return Reached::failed;
        }
    }
    if (::fstatat(parent, name, &info, AT_SYMLINK_NOFOLLOW) != 0) {
        if (errno == ENOENT)
            return Reached::gone;  // taken away by its owner meanwhile
        walk_failure(on_failure, "Unable to check directory entry %s: %s\n", shown, std::strerror(errno));
        return Reached::failed;
    }
    if (!S_ISDIR(info.st_mode))
        return Reached::other;
    below = UniqueFd(::openat(parent, name, kDirectoryFlags));
    if (below.valid())
        return Reached::directory;
    if (errno == ELOOP || errno == ENOTDIR || errno == ENOENT)
        return Reached::gone;
    walk_failure(on_failure, "Unable to open dir %s: %s\n", shown, std::strerror(errno));
    return Reached::failed;
}

// The tree below the top directory, depth first, with a bounded number of
// descriptors whatever its depth: the directory being worked on is open,
// and so are the first kHeldLevels directories above it; a deeper parent
// is reopened through ".." on the way up. A directory's entries are read
// whole before any of them is entered. Links are never followed: one in a
// directory's place is skipped.
bool walk_directory(const Entry& top, const Visitor& visitor, TopDirectory itself) {
    const OnFailure on_failure = visitor.on_failure;
    UniqueFd current(::openat(top.parent, top.name, kDirectoryFlags));
    if (!current.valid() && errno == ELOOP)
        return true;
    if (!current.valid())
        return walk_failure(on_failure, "Unable to open dir %s: %s\n", top.shown, std::strerror(errno));
    std::vector<Level> levels(1);
    if (!enter_level(current.get(), top.name, top.shown, on_failure, levels.back()))
        return false;
    for (;;) {
        Level& level = levels.back();
        if (level.next == level.entries.size()) {
            if (levels.size() == 1)
                return visitor.directory(top, current.get(), itself);
            const std::string name = level.name;
            const std::string shown = level.shown;
            UniqueFd up = open_parent_level(current.get(), levels[levels.size() - 2], shown, on_failure);
            if (!up.valid())
                return false;
            const Entry done{up.get(), name.c_str(), shown.c_str(), false};
            if (!visitor.directory(done, current.get(), TopDirectory::change))
                return false;
            levels.pop_back();
            current = std::move(up);
            continue;
        }
        const crelm::util::ListedEntry& listed = level.entries[level.next++];
        // A name a mail user gave is shown escaped: no control byte of it
        // reaches the panel's output, no newline starts a line of its own.
        const std::string shown = crelm::shown_text(listed.name);
        UniqueFd below;
        struct stat info {};
        switch (reach_entry(current.get(), listed, shown.c_str(), below, info, on_failure)) {
        case Reached::gone:
            continue;
        case Reached::failed:
            return false;
        case Reached::other:
            if (!visitor.file(Entry{current.get(), listed.name.c_str(), shown.c_str(), false}, info))
                return false;
            continue;
        case Reached::directory:
            break;
        }
        Level entered;
        if (!enter_level(below.get(), listed.name, shown.c_str(), on_failure, entered) ||
            !leave_level(current, levels.size() - 1, on_failure, level))
            return false;
        levels.push_back(std::move(entered));
        current = std::move(below);
    }
}

enum class Missing { is_reported, is_fine };

// The top of a walk, reached without following links a mail user planted:
// a missing path, a link (skipped), a directory or another entry.
bool walk_top(const std::string& path, const Visitor& visitor, TopDirectory itself, Missing missing) {
    const crelm::util::ParentDir parent = crelm::util::open_parent(path);
    struct stat info {};
    if (!parent.fd.valid() || ::fstatat(parent.fd.get(), parent.name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
        if (errno == ENOENT && missing == Missing::is_fine)
            return true;
        if (errno == ENOENT) {
            report_error(0, 0, "Directory entry %s doesn't exist: %s\n", path.c_str(), std::strerror(errno));
            return true;
        }
        return walk_failure(visitor.on_failure, "Unable to get entry %s: %s\n", path.c_str(), std::strerror(errno));
    }
    const Entry top{parent.fd.get(), parent.name.c_str(), path.c_str(), true};
    if (S_ISDIR(info.st_mode))
        return walk_directory(top, visitor, itself);
    return visitor.file(top, info);
}

// A file with more than one hard link may be another user's file that a mail
// user linked into its tree: its owner and mode are not ours to change.
bool has_other_names(int fd) {
    struct stat info {};
    return ::fstat(fd, &info) == 0 && info.st_nlink > 1;
}

// A regular file, through a handle that is not a link; a file swapped for a
// link since it was looked at is skipped.
bool change_regular_file(const Entry& entry, const struct stat& info, const std::function<int(int)>& change,
                         const char* failure_format) {
    if (!S_ISREG(info.st_mode))
        return true;
    const UniqueFd file = crelm::util::open_nofollow(entry.parent, entry.name);
    if (!file.valid() && errno == ELOOP)
        return true;
    if (file.valid() && has_other_names(file.get())) {
        errno = 0;
        report_error(0, 1, "Refused to change directory entry %s: it has more than one hard link\n", entry.shown);
        return true;
    }
    if (!file.valid() || change(file.get()) != 0)
        return walk_failure(OnFailure::end_program, failure_format, entry.shown, std::strerror(errno));
    return true;
}

bool change_directory(const Entry& entry, TopDirectory itself, const std::function<int()>& change,
                      const char* failure_format) {
    if (itself == TopDirectory::change && change() != 0)
        return walk_failure(OnFailure::end_program, failure_format, entry.shown, std::strerror(errno));
    return true;
}

Visitor owner_changer(uid_t uid, gid_t gid) {
    return {OnFailure::end_program,
            [uid, gid](const Entry& entry, const struct stat& info) {
                return change_regular_file(
                    entry, info, [uid, gid](int fd) { return crelm::util::chown_handle(fd, uid, gid); },
                    "Unable to chown directory entry %s: %s\n");
            },
            [uid, gid](const Entry& entry, int dir_fd, TopDirectory itself) {
                return change_directory(
                    entry, itself, [dir_fd, uid, gid] { return ::fchown(dir_fd, uid, gid); },
                    "Unable to chown dir %s: %s\n");
            }};
}

Visitor mode_changer(mode_t file_mode, mode_t dir_mode) {
    return {OnFailure::end_program,
            [file_mode](const Entry& entry, const struct stat& info) {
                return change_regular_file(
                    entry, info, [file_mode](int fd) { return crelm::util::chmod_handle(fd, file_mode); },
                    entry.top ? "Unable to chmod entry %s: %s\n" : "Unable to chmod directory entry %s: %s\n");
            },
            [dir_mode](const Entry& entry, int dir_fd, TopDirectory itself) {
                return change_directory(
                    entry, itself, [dir_fd, dir_mode] { return ::fchmod(dir_fd, dir_mode); },
                    "Unable to chmod dir %s: %s\n");
            }};
}

Visitor remover() {
    return {OnFailure::report,
            [](const Entry& entry, const struct stat&) {
                if (::unlinkat(entry.parent, entry.name, 0) == 0)
                    return true;
                return walk_failure(OnFailure::report,
                                    entry.top ? "Unable to unlink entry %s: %s\n"
                                              : "Unable to unlink directory entry %s: %s\n",
                                    entry.shown, std::strerror(errno));
            },
            [](const Entry& entry, int, TopDirectory) {
                if (::unlinkat(entry.parent, entry.name, AT_REMOVEDIR) == 0)
                    return true;
                return walk_failure(OnFailure::report, "Unable to remove dir %s: %s\n", entry.shown,
                                    std::strerror(errno));
            }};
}

}  // namespace

void chown_tree(const std::string& path, uid_t uid, gid_t gid, TopDirectory top) {
    walk_top(path, owner_changer(uid, gid), top, Missing::is_reported);
}

void chmod_tree(const std::string& path, mode_t file_mode, mode_t dir_mode, TopDirectory top) {
    walk_top(path, mode_changer(file_mode, dir_mode), top, Missing::is_reported);
}

int chown_chmod_tree(const std::string& path, uid_t uid, gid_t gid, mode_t file_mode, mode_t dir_mode,
                     TopDirectory top) {
    chown_tree(path, uid, gid, top);
    chmod_tree(path, file_mode, dir_mode, top);
    return 0;
}

int remove_tree(const std::string& path) {
    return walk_top(path, remover(), TopDirectory::change, Missing::is_fine) ? 0 : 1;
}
