// Replacing a whole small file (a dot-qmail file) in one step: the new
// content is written to a temporary file of its own beside it
// ("<path>.tmp.XXXXXX"), given its owner and mode,
// flushed to the disk and renamed over the file, whose directory is then
// flushed too. Readers (qmail-local) and the next run after a crash or a
// power cut find the old content or the new, never a missing, empty or
// half-written file, and never a file that is not yet the mail owner's.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace crelm::util {

// Makes the new content from the old one (empty when the file does not
// exist); nullopt leaves the file alone and fails the replacement.
using ContentEdit = std::function<std::optional<std::string>(std::string_view old_content)>;
// Gives the written temporary file its owner and mode through its open
// descriptor, reporting its own failures; false stops the replacement.
using FileFinish = std::function<bool(int fd)>;

// What an edit makes of a file that does not exist.
enum class WhenMissing {
    edit_empty,  // the edit starts from empty content and makes the file
    fail,        // nothing is made: result 1, without a message
};

// Under the lock of path in the lock directory (the lock that the line
// editor takes for the same file), reads the file, never through a link at
// its name (a FIFO or device there is not read), runs edit, and writes the
// result as described above, mode 0600 at creation. Result 0, or 1 after
// one of "Error occurred while locking the file %s: %s\n", "Unable to open
// file %s: %s\n", "Unable to read line from file: %s: %s\n", "Unable to
// write data into file %s: %s\n", "Unable to close file %s: %s\n", "Unable
// to rename file %s: %s\n" (the rename or the directory's flush), or
// finish's own failure; on any failure before the rename the file is as it
// was and the temporary file is gone. The old file is read only when it is
// a regular file ("Unable to open file %s: Invalid argument" otherwise) with
// one link and at most 1 MiB (util/mail_user_file.h): a file with more links
// or a larger one is left alone, never read, after "Refused to edit file %s:
// it has more than one hard link\n" or "Refused to edit file %s: it is
// larger than 1048576 bytes\n".
int replace_file_locked(const std::string& path, const ContentEdit& edit, const FileFinish& finish,
                        WhenMissing missing = WhenMissing::edit_empty);
// The same with content given whole: the old file is not read, and whatever
// has its name (a link or FIFO planted there included) is replaced by the
// rename, never followed or read.
int replace_file_locked(const std::string& path, const std::string& content, const FileFinish& finish);
// The same with the content read from source, from its offset to its end, in
// blocks: a large file is never held whole in memory. A failed read of
// source is reported as the write's failure.
int replace_file_locked_from(const std::string& path, int source, const FileFinish& finish);

}  // namespace crelm::util
