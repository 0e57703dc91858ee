#include "mailbox/temporary_maildir_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "mailbox/open_directory.h"

namespace crelm::mailbox {
namespace {

bool same_inode(const struct stat& a, const struct stat& b) { return a.st_dev == b.st_dev && a.st_ino == b.st_ino; }

}  // namespace

bool TemporaryMaildirFile::create(int maildir_fd, const std::string& name) {
    discard();
    tmp_dir_ = open_directory_at(maildir_fd, "tmp");
    if (!tmp_dir_.valid())
        return false;
    struct stat existing;
    if (fstatat(tmp_dir_.get(), name.c_str(), &existing, AT_SYMLINK_NOFOLLOW) == 0) {
        errno = EEXIST;
        return false;
    }
    if (errno != ENOENT)
        return false;
    file_.reset(openat(tmp_dir_.get(), name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
    if (!file_.valid())
        return false;
    name_ = name;
    struct stat opened;
    struct stat named;
    if (fstat(file_.get(), &opened) != 0) {
        // O_EXCL made the name ours a moment ago: remove it by name.
        const int saved = errno;
        file_.reset();
        unlinkat(tmp_dir_.get(), name.c_str(), 0);
        errno = saved;
        return false;
    }
    created_ = true;
    dev_ = opened.st_dev;
    ino_ = opened.st_ino;
    if (fstatat(tmp_dir_.get(), name.c_str(), &named, AT_SYMLINK_NOFOLLOW) != 0 || !same_inode(opened, named)) {
        discard();
        errno = EEXIST;
        return false;
    }
    if (ftruncate(file_.get(), 0) != 0)
        return discard(), false;
    return true;
}

bool TemporaryMaildirFile::commit(int maildir_fd, const char* target) {
    if (renameat(tmp_dir_.get(), name_.c_str(), maildir_fd, target) != 0)
        return false;
    created_ = false;
    // The new name reaches the disk too: after a power cut the Maildir holds
    // the old file or the new one.
    return fsync(maildir_fd) == 0;
}

void TemporaryMaildirFile::discard() {
    const int saved = errno;
    file_.reset();
    struct stat named;
    if (created_ && fstatat(tmp_dir_.get(), name_.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
        named.st_dev == dev_ && named.st_ino == ino_)
        unlinkat(tmp_dir_.get(), name_.c_str(), 0);
    created_ = false;
    errno = saved;
}

}  // namespace crelm::mailbox
