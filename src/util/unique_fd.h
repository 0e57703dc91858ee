// Owners for descriptors and directory streams: whatever path a function
// leaves by, what it opened is closed.
#pragma once

#include <dirent.h>
#include <unistd.h>

#include <utility>

#include "runtime/saved_errno.h"

namespace crelm::util {

class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other)
            reset(other.release());
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd() { reset(); }

    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }
    int release() { return std::exchange(fd_, -1); }
    // Closes the descriptor held, leaving errno as it was: the owner is
    // often let go on the way to reporting another call's failure.
    void reset(int fd = -1) {
        if (fd_ >= 0) {
            const crelm::SavedErrno kept;
            ::close(fd_);
        }
        fd_ = fd;
    }
    // Closes now and returns close's result, for callers that must report a
    // failed close.
    int close() { return fd_ >= 0 ? ::close(release()) : 0; }

private:
    int fd_ = -1;
};

class UniqueDir {
public:
    UniqueDir() = default;
    explicit UniqueDir(DIR* dir) : dir_(dir) {}
    UniqueDir(const UniqueDir&) = delete;
    UniqueDir& operator=(const UniqueDir&) = delete;
    ~UniqueDir() {
        if (dir_ != nullptr) {
            const crelm::SavedErrno kept;
            ::closedir(dir_);
        }
    }

    DIR* get() const { return dir_; }
    bool valid() const { return dir_ != nullptr; }
    int close() { return dir_ != nullptr ? ::closedir(std::exchange(dir_, nullptr)) : 0; }

private:
    DIR* dir_ = nullptr;
};

}  // namespace crelm::util
