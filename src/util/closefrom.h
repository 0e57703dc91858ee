// Closing every descriptor from a given number up, so that a child process
// inherits nothing but what it is meant to.
#pragma once

namespace crelm::util {

// Closes every open descriptor >= lowest, found by listing /proc/self/fd.
// 0 on success; -1 when the list cannot be read (errno set, nothing closed).
// (It lives in this namespace because the C library declares a closefrom of
// its own, returning nothing.)
int closefrom(int lowest);

}  // namespace crelm::util
