#include "qmail/owned_entries.h"

#include "util/mail_user_file.h"
#include "util/nofollow.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace crelm::qmail {
namespace {

// Where an entry is made: the directory that holds it and its name there.
// The directory is dir_fd itself when relative has no "/" (borrowed, not
// duplicated: the tree is made a system call cheaper per entry), else a
// handle of its own on the walked directory.
struct PlaceAt {
    util::UniqueFd walked;  // the walked directory, when there was a walk
    int parent = -1;        // -1 (errno set) when the walk failed
    std::string name;
};

// The directory that holds the last component of relative, walked from
// dir_fd by the link rule of util/nofollow.h.
PlaceAt place_at(int dir_fd, const std::string& relative) {
    if (dir_fd < 0) {
        errno = EBADF;
        return {util::UniqueFd(), -1, relative};
    }
    const std::size_t slash = relative.rfind('/');
    if (slash == std::string::npos)
        return {util::UniqueFd(), dir_fd, relative};
    util::UniqueFd current;
    int at = dir_fd;
    std::size_t start = 0;
    while (at >= 0 && start < slash) {
        const std::size_t end = std::min(relative.find('/', start), slash);
        if (end > start) {
            current = util::open_component(at, relative.substr(start, end - start));
            at = current.get();
        }
        start = end + 1;
    }
    const int parent = at;
    return {std::move(current), parent, relative.substr(slash + 1)};
}

int fail(OwnedFailure& failure, OwnedStep step) {
    failure = {step, errno};
    return -1;
}

int own_handle(int fd, const MailOwnerIds& owner, mode_t mode, OwnedFailure& failure) {
    if (util::chown_handle(fd, owner.uid, owner.gid) != 0 || util::chmod_handle(fd, mode) != 0)
        return fail(failure, OwnedStep::owned);
    return 0;
}

// A handle on the directory name inside parent on which owner and mode can
// be set directly: opened for reading, which O_DIRECTORY and O_NOFOLLOW
// refuse for a link (ELOOP) and for anything but a directory (ENOTDIR)
// without opening it, so a FIFO or device there never holds the open. A
// directory that this process may not read is still reached by an O_PATH
// handle, whose owner and mode change through its /proc entry.
struct MadeDir {
    util::UniqueFd fd;
    bool path_handle = false;
};

MadeDir open_made_dir(int parent, const std::string& name) {
    constexpr int kDirectory = O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    util::UniqueFd readable(::openat(parent, name.c_str(), O_RDONLY | kDirectory));
    if (!readable.valid() && errno == ENOTDIR) {
        // O_DIRECTORY answers a link with ENOTDIR too: a link is ELOOP.
        struct stat info {};
        if (::fstatat(parent, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(info.st_mode))
            errno = ELOOP;
        else
            errno = ENOTDIR;
    }
    if (readable.valid() || errno != EACCES)
        return {std::move(readable), false};
    return {util::UniqueFd(::openat(parent, name.c_str(), O_PATH | kDirectory)), true};
}

int own_dir(const MadeDir& dir, const MailOwnerIds& owner, mode_t mode, OwnedFailure& failure) {
    if (dir.path_handle)
        return own_handle(dir.fd.get(), owner, mode, failure);
    if (::fchown(dir.fd.get(), owner.uid, owner.gid) != 0 || ::fchmod(dir.fd.get(), mode) != 0)
        return fail(failure, OwnedStep::owned);
    return 0;
}

int make_dir_in(const PlaceAt& place, const MailOwnerIds& owner, mode_t mode, OwnedFailure& failure,
                OwnedDir* made) {
    if (place.parent < 0)
        return fail(failure, OwnedStep::made);
    const bool created = ::mkdirat(place.parent, place.name.c_str(), mode) == 0;
    if (made != nullptr)
        made->created = created;
    if (!created && errno != EEXIST)
        return fail(failure, OwnedStep::made);
    MadeDir dir = open_made_dir(place.parent, place.name);
    if (!dir.fd.valid())
        return fail(failure, OwnedStep::made);
    if (own_dir(dir, owner, mode, failure) != 0)
        return -1;
    if (made != nullptr)
        made->fd = std::move(dir.fd);
    return 0;
}

}  // namespace

int make_owned_dir_at(int dir_fd, const std::string& relative, const MailOwnerIds& owner, mode_t mode,
                      OwnedFailure& failure, OwnedDir* made) {
    return make_dir_in(place_at(dir_fd, relative), owner, mode, failure, made);
}

int make_owned_dir(const std::string& path, const MailOwnerIds& owner, mode_t mode, OwnedFailure& failure,
                   OwnedDir* made) {
    util::ParentDir parent = util::open_parent(path);
    const int at = parent.fd.valid() ? parent.fd.get() : -1;
    return make_dir_in({std::move(parent.fd), at, parent.name}, owner, mode, failure, made);
}

int make_owned_file_at(int dir_fd, const std::string& relative, const MailOwnerIds& owner, mode_t mode,
                       OwnedFailure& failure) {
    const PlaceAt place = place_at(dir_fd, relative);
    if (place.parent < 0)
        return fail(failure, OwnedStep::made);
    // A link, FIFO or device at the place is refused; a hard link to
    // another file is replaced by a file of its own before it is chowned.
    const util::UniqueFd file = util::open_mail_user_file_for_writing(place.parent, place.name, mode);
    if (!file.valid())
        return fail(failure, OwnedStep::made);
    if (::fchown(file.get(), owner.uid, owner.gid) != 0 || ::fchmod(file.get(), mode) != 0)
        return fail(failure, OwnedStep::owned);
    return 0;
}

}  // namespace crelm::qmail
