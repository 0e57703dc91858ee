// Opening a file that a mail user can write, replace or link at will (a
// dot-qmail file, a folder marker). The user may have put a FIFO or a
// device there (an open or a read would block root), a hard link to a file
// of root's (whose content must not reach a file the user can read, and
// whose owner and mode must not change), or a huge sparse file (a read of a
// gigabyte). Nothing is reached through a symbolic link at the name.
#pragma once

#include "util/unique_fd.h"

#include <sys/types.h>

#include <string>

namespace crelm::util {

// The largest dot-qmail file read: a larger one is refused, never read.
inline constexpr off_t kMailUserFileLimit = 1024 * 1024;

enum class FileRefusal {
    none,
    not_regular,    // a FIFO, device, socket or directory (errno EINVAL)
    several_links,  // more than one hard link (errno EMLINK)
    too_large,      // above the size limit (errno EFBIG)
};

// What open_mail_user_file gives: the descriptor, or why there is none
// (refusal none with errno from open when the open itself failed).
struct MailUserFile {
    UniqueFd fd;
    FileRefusal refusal = FileRefusal::none;
};

// Opens name inside dir_fd for reading: without following a link there
// (ELOOP), with O_NONBLOCK so that a FIFO or device cannot hold the open,
// then examined on the descriptor: only a regular file with one link and at
// most size_limit bytes is kept, and gets blocking reads back.
MailUserFile open_mail_user_file(int dir_fd, const std::string& name, off_t size_limit);

// The refusal in words, for "Refused to edit file %s: %s\n".
const char* refusal_reason(FileRefusal refusal);

// Opens name inside dir_fd for writing, created with mode when missing
// (an existing file keeps its content; the caller truncates it). A link
// at the name gives ELOOP, anything but a regular file EINVAL (neither is
// touched). A file with more than one hard link is not written: its name
// is taken away (the file itself, under its other names, keeps its content,
// owner and mode) and a new file is made in its place; a file planted there
// again meanwhile gives EEXIST. Invalid with errno set on failure.
UniqueFd open_mail_user_file_for_writing(int dir_fd, const std::string& name, mode_t mode);

}  // namespace crelm::util
