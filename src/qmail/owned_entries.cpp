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

int make_dir_in(const PlaceAt& place, const MailOwnerIds& owner, mode_t mode, OwnedFailure& failure) {
    if (!place.parent.valid())
        return fail(failure, OwnedStep::made);
    if (::mkdirat(place.parent.get(), place.name.c_str(), mode) != 0 && errno != EEXIST)
        return fail(failure, OwnedStep::made);
    const util::UniqueFd dir = util::open_nofollow(place.parent.get(), place.name.c_str());
    struct stat info {};
    if (!dir.valid() || ::fstat(dir.get(), &info) != 0)
        return fail(failure, OwnedStep::made);
    if (!S_ISDIR(info.st_mode)) {
        errno = ENOTDIR;
        return fail(failure, OwnedStep::made);
    }
    return own_handle(dir.get(), owner, mode, failure);
}

}  // namespace

int make_owned_dir_at(int dir_fd, const std::string& relative, const MailOwnerIds& owner, mode_t mode,
                      OwnedFailure& failure) {
    return make_dir_in(place_at(dir_fd, relative), owner, mode, failure);
}

int make_owned_dir(const std::string& path, const MailOwnerIds& owner, mode_t mode, OwnedFailure& failure) {
    util::ParentDir parent = util::open_parent(path);
    return make_dir_in({std::move(parent.fd), parent.name}, owner, mode, failure);
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

util::UniqueFd open_owned_dir(const std::string& path) {
    const util::ParentDir parent = util::open_parent(path);
    if (!parent.fd.valid())
        return util::UniqueFd();
    return util::UniqueFd(
        ::openat(parent.fd.get(), parent.name.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

}  // namespace crelm::qmail
