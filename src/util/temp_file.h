// A temporary file beside the file it will replace: removed when its owner
// goes out of scope, unless it was renamed into place or deliberately kept.
#pragma once

#include "util/unique_fd.h"

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <string>

namespace crelm::util {

class TempFile {
public:
    // Creates name inside the directory dir_fd (which must outlive the
    // object) afresh for writing: whatever is there (a stale temporary file
    // or a link someone planted) is removed first, then the file is made
    // with O_EXCL and without following links. mode is subject to the umask.
    // shown is the path used in messages. valid() is false (errno set) when
    // it cannot be made.
    static TempFile create_fresh(int dir_fd, const std::string& name, const std::string& shown, mode_t mode);
    // As mkstemp does for "<name>XXXXXX": a new file (mode 0600) named name
    // followed by six random letters or digits, inside dir_fd; shown is the
    // path prefix used in messages.
    static TempFile create_unique(int dir_fd, const std::string& name, const std::string& shown);
    // A file that could not be made; errno is left as it is.
    static TempFile none();

    TempFile(TempFile&& other) noexcept;
    TempFile& operator=(TempFile&&) = delete;
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;
    ~TempFile();

    bool valid() const { return fd_.valid(); }
    int fd() const { return fd_.get(); }
    const std::string& path() const { return shown_; }

    // Hands the descriptor to a caller (a stream) that will close it.
    int release_fd() { return fd_.release(); }
    // Closes the descriptor; close's result (the file stays until commit).
    int close() { return fd_.close(); }
    // Flushes the file's content to the disk (fsync); 0 or -1 with errno.
    // Writers call it before commit_to, while they still hold the file.
    int sync() { return ::fsync(fd_.get()); }
    // Renames the file onto target, a name in the same directory, then
    // flushes the directory, so that after a power cut the name holds the
    // old or the new content, never a file the rename had not reached. 0, or
    // -1 with errno when the rename or the directory's flush failed. After
    // the rename there is nothing left to remove.
    int commit_to(const std::string& target);
    // Leaves the file on disk (it may hold the only copy of the content).
    void keep() { owned_ = false; }

private:
    TempFile(int fd, int dir_fd, std::string name, std::string shown);

    UniqueFd fd_;
    int dir_fd_ = AT_FDCWD;
    std::string name_;
    std::string shown_;
    bool owned_ = true;
};

// The temporary file of an edit of the file name inside dir_fd: a new
// "<name>.tmp.XXXXXX" (mode 0600, see create_unique), made after removing
// the copies that killed edits of the same file left. Every writer has a
// name of its own, so no writer can remove or replace another's. The caller
// holds the file's lock. shown is the file's path, for messages.
TempFile create_temporary_beside(int dir_fd, const std::string& name, const std::string& shown);

// Flushes the directory dir_fd (any handle, O_PATH included) to the disk,
// so that names created, renamed or removed in it survive a power cut. 0, or
// -1 with errno.
int sync_directory(int dir_fd);

}  // namespace crelm::util
