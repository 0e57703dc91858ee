#include "util/tree_walk.h"

#include "runtime/log.h"
#include "util/nofollow.h"
#include "util/unique_fd.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <functional>

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

// An entry of the walk: name inside the directory parent (the working
// directory below the top), shown as shown in messages.
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

bool walk_directory(const Entry& entry, const Visitor& visitor, TopDirectory itself);

bool is_dot_or_dot_dot(const char* name) {
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

bool visit_entries(DIR* listing, const Visitor& visitor) {
    while (const dirent* found = ::readdir(listing)) {
        if (is_dot_or_dot_dot(found->d_name))
            continue;
        const Entry entry{AT_FDCWD, found->d_name, found->d_name, false};
        struct stat info {};
        if (::lstat(found->d_name, &info) != 0)
            return walk_failure(visitor.on_failure, "Unable to check directory entry %s: %s\n", found->d_name,
                                std::strerror(errno));
        const bool ok =
            S_ISDIR(info.st_mode) ? walk_directory(entry, visitor, TopDirectory::change) : visitor.file(entry, info);
        if (!ok)
            return false;
    }
    return true;
}

// Enters a directory by a handle opened without following links (a link put
// in its place is skipped), handles its entries and comes back.
bool walk_directory(const Entry& entry, const Visitor& visitor, TopDirectory itself) {
    const OnFailure on_failure = visitor.on_failure;
    UniqueFd saved(::open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!saved.valid())
        return walk_failure(on_failure, "Unable to get file descriptor of current dir: %s\n", std::strerror(errno));
    UniqueFd dir(::openat(entry.parent, entry.name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!dir.valid() && errno == ELOOP)
        return true;
    UniqueDir listing(dir.valid() ? ::fdopendir(::fcntl(dir.get(), F_DUPFD_CLOEXEC, 0)) : nullptr);
    if (!listing.valid())
        return walk_failure(on_failure, "Unable to open dir %s: %s\n", entry.shown, std::strerror(errno));
    if (::fchdir(dir.get()) != 0)
        return walk_failure(on_failure, "Unable to change dir %s: %s\n", entry.shown, std::strerror(errno));
    const bool entries_done = visit_entries(listing.get(), visitor);
    if (::fchdir(saved.get()) != 0 || saved.close() != 0)
        return walk_failure(on_failure, "Unable to restore & close current dir: %s\n", std::strerror(errno));
    if (listing.close() != 0)
        return walk_failure(on_failure, "Unable to close dir %s: %s\n", entry.shown, std::strerror(errno));
    return entries_done && visitor.directory(entry, dir.get(), itself);
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

// A regular file, through a handle that is not a link; a file swapped for a
// link since it was looked at is skipped.
bool change_regular_file(const Entry& entry, const struct stat& info, const std::function<int(int)>& change,
                         const char* failure_format) {
    if (!S_ISREG(info.st_mode))
        return true;
    const UniqueFd file = crelm::util::open_nofollow(entry.parent, entry.name);
    if (!file.valid() && errno == ELOOP)
        return true;
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
