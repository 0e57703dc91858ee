// Copying a file: under the destination's lock, or atomically by rename.
#pragma once

#include <sys/types.h>

#include <string>

// Copies source onto destination ("-" is standard output) under the
// destination's lock in the lock directory, in blocks of 8192 bytes; the
// destination is created with the source's mode and never written through
// a symbolic link (reached by the walk of util/nofollow.h). The same string
// for both is a success that does nothing.
// Result: 0, or 1 after one of
//   "Error occurred while locking the file %s\n"
//   "Unable to open file %s: %s" (source or destination)
//   "Unable to get info for file '%s': %s"
//   "Error while copying file %s to %s: %s" (read failure)
//   "Unable to copy file %s to %s: %s\n" (short write)
//   "Unable to close file %s: %s\n"
// A failure to release the lock is reported ("Error occurred while
// unlocking the file %s\n") but does not change the result.
int copy_file(const std::string& source, const std::string& destination);

// Copies source into a new "<destination>.XXXXXX" (made as mkstemp does,
// beside destination, reached by the walk of util/nofollow.h), gives it
// owner, group and mode, flushes it to the disk (fsync) and renames it onto
// destination, then flushes the directory: a power cut leaves the old or the
// new file. Result: 0, or 1 after one of (the temporary file removed every
// time)
//   "copy_file_atomic(): source %s open failed: %s"
//   "copy_file_atomic(): mkstemp failed: %s"
//   "copy_file_atomic(): write_fd_to_fd failed: %s"
//   "copy_file_atomic(): fchown failed: %s"
//   "copy_file_atomic(): fchmod failed: %s"
//   "copy_file_atomic(): close failed: %s" (the flush or the close)
//   "copy_file_atomic(): rename %s to %s failed: %s" (the rename or the
//     directory's flush; after the latter the copy is in place)
int copy_file_atomic(const std::string& source, const std::string& destination, uid_t owner, gid_t group, mode_t mode);
