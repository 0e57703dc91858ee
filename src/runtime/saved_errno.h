// Keeps errno across clean-up (a close, the removal of a temporary file, a
// log line) between a failing call and the report of its failure, so that
// the report names the cause of the call that failed.
#pragma once

#include <cerrno>

namespace crelm {

class SavedErrno {
public:
    SavedErrno() : value_(errno) {}
    ~SavedErrno() { errno = value_; }
    SavedErrno(const SavedErrno&) = delete;
    SavedErrno& operator=(const SavedErrno&) = delete;

private:
    int value_;
};

}  // namespace crelm
