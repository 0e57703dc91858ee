// The files the stores keep under their root-only directories (the
// databases, their journals, the password key) are opened by SQLite and by
// the cipher as plain files. Something else at one of those paths (a FIFO,
// a device, a link) would hang the command on its first read or send it
// elsewhere, so each is looked at first through a handle opened without
// blocking and without following a link.
#pragma once

#include <string>

#include "util/unique_fd.h"

// A read-only handle on the regular file at path, opened with O_NONBLOCK and
// O_NOFOLLOW. An invalid handle with errno ENOENT when nothing is there, or
// with open's errno when it could not be opened for another reason that
// leaves the kind of file unknown, or with EISDIR for a directory (its users
// then report it as before: a directory neither blocks nor leads elsewhere).
// Anything there that is not a regular file ends the program with status 1
// after "<failure>: <path> is a <kind>, not a regular file" (kind as
// file_type_name gives it: "fifo", "symbolic link", ...).
crelm::util::UniqueFd open_regular_store_file(const std::string& path, const std::string& failure);

// The same check for a database and its journals ("<db>-journal",
// "<db>-wal", "<db>-shm"), with the failure "Unable to open database
// <db>"; each may be missing.
void require_regular_store_files(const std::string& db_path);
