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

struct PlaceAt {
    util::UniqueFd parent;  // invalid (errno set) when the walk failed
    std::string name;
};

// The directory that holds the last component of relative, walked from
// dir_fd by the link rule of util/nofollow.h.
PlaceAt place_at(int dir_fd, const std::string& relative) {
    const std::size_t slash = relative.rfind('/');
    if (slash == std::string::npos)
        return {util::UniqueFd(::fcntl(dir_fd, F_DUPFD_CLOEXEC, 0)), relative};
    util::UniqueFd current(::fcntl(dir_fd, F_DUPFD_CLOEXEC, 0));
    std::size_t start = 0;
    while (current.valid() && start < slash) {
        const std::size_t end = std::min(relative.find('/', start), slash);
        if (end > start)
            current = util::open_component(current.get(), relative.substr(start, end - start));
        start = end + 1;
    }
    return {std::move(current), relative.substr(slash + 1)};
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
    if (!place.parent.valid())
        return fail(failure, OwnedStep::made);
    const bool created = ::mkdirat(place.parent.get(), place.name.c_str(), mode) == 0;
    if (made != nullptr)
        made->created = created;
    if (!created && errno != EEXIST)
        return fail(failure, OwnedStep::made);
    MadeDir dir = open_made_dir(place.parent.get(), place.name);
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
    return make_dir_in({std::move(parent.fd), parent.name}, owner, mode, failure, made);
}

int make_owned_file_at(int dir_fd, const std::string& relative, const MailOwnerIds& owner, mode_t mode,
                       OwnedFailure& failure) {
    const PlaceAt place = place_at(dir_fd, relative);
    if (!place.parent.valid())
        return fail(failure, OwnedStep::made);
    // A link, FIFO or device at the place is refused; a hard link to
    // another file is replaced by a file of its own before it is chowned.
    const util::UniqueFd file = util::open_mail_user_file_for_writing(place.parent.get(), place.name, mode);
    if (!file.valid())
        return fail(failure, OwnedStep::made);
    if (::fchown(file.get(), owner.uid, owner.gid) != 0 || ::fchmod(file.get(), mode) != 0)
        return fail(failure, OwnedStep::owned);
    return 0;
}

}  // namespace crelm::qmail
