// Making directories and files inside a mail user's tree. Mail users can
// write there, so nothing is reached through a symbolic link they planted:
// paths are walked by the rule of util/nofollow.h, the last component is
// never followed, and owners and modes are changed on handles.
#pragma once

#include "qmail/mail_owner.h"
#include "util/unique_fd.h"

#include <sys/types.h>

#include <string>

namespace crelm::qmail {

enum class OwnedStep { made, owned };

// What went wrong: the step, with errno kept from the failing call.
struct OwnedFailure {
    OwnedStep step = OwnedStep::made;
    int error = 0;
};

// A directory just made or found by make_owned_dir_at: a handle on it, to
// make what it holds without walking to it again, and whether this call
// created it.
struct OwnedDir {
    util::UniqueFd fd;
    bool created = false;
};

// Makes the directory relative (a path below dir_fd, such as
// "Maildir/.Spam/tmp") with mode, accepting one that is there, then gives
// it owner and mode. 0, or -1 with failure filled (a link or a
// non-directory at the place fails the make step with ELOOP or ENOTDIR).
// When made is given, it receives the directory's handle and whether it
// was created here.
int make_owned_dir_at(int dir_fd, const std::string& relative, const MailOwnerIds& owner, mode_t mode,
                      OwnedFailure& failure, OwnedDir* made = nullptr);

// The same for an absolute path, walked from "/".
int make_owned_dir(const std::string& path, const MailOwnerIds& owner, mode_t mode, OwnedFailure& failure,
                   OwnedDir* made = nullptr);

// Creates the empty file relative below dir_fd (an existing regular file
// with one link is kept as it is; one with more links, which may be another
// user's file, is replaced by a new empty one), then gives it owner and
// mode. 0 or -1 as above (a FIFO or device at the place: EINVAL or ENXIO).
int make_owned_file_at(int dir_fd, const std::string& relative, const MailOwnerIds& owner, mode_t mode,
                       OwnedFailure& failure);

}  // namespace crelm::qmail
