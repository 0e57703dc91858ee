// Exclusive locks that serialise edits of one file between processes.
#pragma once

#include <string>

// Where the lock file lives: in the lock directory of util/lock_directory.h
// (made and checked by this program), named by the MD5 of the locked file's
// canonical path, or the path itself.
enum class LockPlace { lock_directory, the_file_itself };

// A held or failed lock. Going out of scope releases a held lock, like
// unlock_file does.
class FileLock {
public:
    FileLock(int descriptor, std::string path);
    FileLock(FileLock&& other) noexcept;
    FileLock& operator=(FileLock&&) = delete;
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;
    ~FileLock();

    // Greater than 0: the lock is held; 0: it would block or the lock file
    // could not be opened; -1: flock failed otherwise.
    int descriptor() const { return descriptor_; }
    bool held() const { return descriptor_ > 0; }
    // The lock file's path.
    const std::string& path() const { return path_; }

    // Closes the lock file, which releases the lock (the file stays). 0, or
    // -1 after "An error occured during closing '%s' file: %s\n".
    int release();
    // Leaves the lock held until the process ends.
    void keep_until_exit();

private:
    int descriptor_;
    std::string path_;
};

// Opens the lock file read-write (created, truncated, mode 0600; never
// through a symbolic link) and takes an exclusive flock, waiting for it.
// An open failure is reported ("Unable to open file \"%s\": %s.") and gives
// descriptor 0, and so does a lock directory that fails its checks (reported
// by the check, errno EACCES): such a directory is never waited on. A flock
// failure gives 0 for EAGAIN, else -1. A lock this process holds already, or
// keeps after keep_until_exit (through any name of the same file), is never
// waited on: -1 with errno EDEADLK, at once (util/held_locks.h).
FileLock lock_file(const std::string& path, LockPlace place);

// The same without waiting: descriptor 0 when another process (or this one)
// holds the lock.
FileLock try_lock_file(const std::string& path, LockPlace place);

// lock.release(): 0, or -1 when closing failed (reported).
int unlock_file(FileLock& lock);
