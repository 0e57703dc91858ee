// Owner of a file descriptor opened by the stores.
#pragma once

#include <unistd.h>

#include <utility>

class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    ~UniqueFd() { close(); }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) {
            close();
            fd_ = std::exchange(other.fd_, -1);
        }
        return *this;
    }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }

    // Closes now; returns close(2)'s result, 0 when nothing is held.
    int close() { return fd_ < 0 ? 0 : ::close(std::exchange(fd_, -1)); }

private:
    int fd_ = -1;
};
