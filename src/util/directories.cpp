#include "util/directories.h"

#include "runtime/log.h"
#include "util/nofollow.h"
#include "util/umask_scope.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

using crelm::util::ParentDir;
using crelm::util::UniqueFd;

namespace {

// "/a/b/c" gives "/a", "/a/b", "/a/b/c"; repeated and trailing slashes are
// skipped.
std::vector<std::string> path_prefixes(const std::string& path) {
    std::vector<std::string> prefixes;
    for (std::size_t at = 0; at < path.size(); ++at) {
        const bool component_ends = path[at] != '/' && (at + 1 == path.size() || path[at + 1] == '/');
        if (component_ends)
            prefixes.push_back(path.substr(0, at + 1));
    }
    return prefixes;
}

bool is_directory(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool is_directory_at(int dir_fd, const std::string& name) {
    struct stat info {};
    return ::fstatat(dir_fd, name.c_str(), &info, 0) == 0 && S_ISDIR(info.st_mode);
}

int report_dir_failure(const char* format, const std::string& path) {
    report_error(0, 0, format, path.c_str(), std::strerror(errno));
    return -1;
}

[[noreturn]] void cannot_create(const std::string& path) {
    report_error(1, 1, "Cannot create directory %s: %s", path.c_str(), std::strerror(errno));
    std::abort();  // report_error has ended the program
}

// One step of mkdir_p_owned: makes name inside parent (accepting a directory
// that is there) and gives a directory made here to uid and gid. Returns
// the handle to go on from.
UniqueFd make_component(int parent, const std::string& name, const std::string& shown, uid_t uid, gid_t gid,
                        mode_t mode) {
    const bool created = ::mkdirat(parent, name.c_str(), mode) == 0;
    if (!created && errno != EEXIST)
        cannot_create(shown);
    UniqueFd made = crelm::util::open_component(parent, name);
    if (!made.valid())
        return made;
    if (created && crelm::util::chown_handle(made.get(), uid, gid) != 0)
        report_error(0, 0, "Cannot chown %s: %s", shown.c_str(), std::strerror(errno));
    return made;
}

int report_target_exists(const std::string& path) {
    errno = 0;
    report_error(0, 0, "Directory rename error: target directory %s already exists.\n", path.c_str());
    return -1;
}

// A target that appears between the look and the rename is not replaced.
int rename_no_replace(const std::string& old_path, const std::string& new_path) {
    const int result = ::renameat2(AT_FDCWD, old_path.c_str(), AT_FDCWD, new_path.c_str(), RENAME_NOREPLACE);
    if (result != 0 && errno == EINVAL)
        return std::rename(old_path.c_str(), new_path.c_str());
    return result;
}

}  // namespace

int make_dir_owned(const std::string& path, uid_t uid, gid_t gid, mode_t mode) {
    const ParentDir parent = crelm::util::open_parent(path);
    if (!parent.fd.valid())
        return report_dir_failure("ERROR: Unable to mkdir %s: %s\n", path);
    if (::mkdirat(parent.fd.get(), parent.name.c_str(), mode) != 0) {
        const int failure = errno;
        if (failure != EEXIST || !is_directory_at(parent.fd.get(), parent.name)) {
            errno = failure;
            return report_dir_failure("ERROR: Unable to mkdir %s: %s\n", path);
        }
    }
    const UniqueFd made = crelm::util::open_nofollow(parent.fd.get(), parent.name.c_str());
    if (!made.valid() && errno == ENOENT)
        return 0;
    if (!made.valid() || crelm::util::chown_handle(made.get(), uid, gid) != 0)
        return report_dir_failure("ERROR: Unable to chown %s: %s\n", path);
    if (crelm::util::chmod_handle(made.get(), mode) != 0)
        return report_dir_failure("ERROR: Unable to chmod %s: %s\n", path);
    return 0;
}

int mkdir_p_owned(const std::string& path, uid_t uid, gid_t gid, mode_t mode) {
    const crelm::util::UmaskScope no_mask(0);
    const std::vector<std::string> prefixes = path_prefixes(path);
    UniqueFd current(::open(path.starts_with('/') ? "/" : ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
    for (std::size_t i = 0; i < prefixes.size(); ++i) {
        const std::string name = prefixes[i].substr(prefixes[i].find_last_of('/') + 1);
        current = make_component(current.get(), name, prefixes[i], uid, gid, mode & 0777);
        if (!current.valid()) {
            // A component that is no directory shows in the next one's name,
            // as mkdir of that one would report it.
            if (errno == ENOTDIR && i + 1 < prefixes.size())
                cannot_create(prefixes[i + 1]);
            if (errno == ENOTDIR)
                errno = EEXIST;
            cannot_create(prefixes[i]);
        }
    }
    return 0;
}

int rename_dir(const std::string& old_path, const std::string& new_path) {
    struct stat info {};
    if (::lstat(old_path.c_str(), &info) != 0 && errno == ENOENT)
        return 0;
    if (::lstat(new_path.c_str(), &info) == 0)
        return report_target_exists(new_path);
    if (rename_no_replace(old_path, new_path) == 0)
        return 0;
    if (errno == EEXIST || errno == ENOTEMPTY)
        return report_target_exists(new_path);
    report_error(0, 0, "Remaming %s to %s failed: %s\n", old_path.c_str(), new_path.c_str(), std::strerror(errno));
    return -1;
}

int make_path(const std::string& path) {
    for (const std::string& prefix : path_prefixes(path)) {
        if (::mkdir(prefix.c_str(), 0755) == 0)
            continue;
        if (errno != EEXIST)
            return 0;
        if (!is_directory(prefix)) {
            errno = ENOTDIR;
            return 0;
        }
    }
    return 1;
}
