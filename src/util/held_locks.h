// The lock files this process holds, or keeps until it ends. flock locks
// taken through two opens of one lock file exclude each other even within
// one process, so taking a held one again would wait for ever on itself:
// the lock functions refuse that instead (EDEADLK).
#pragma once

#include <string>

namespace crelm::util {

// Whether this process holds the lock of lock_path.
bool lock_held_here(const std::string& lock_path);

// Marks the lock of lock_path as held by this process, or no longer held.
void note_lock_held(const std::string& lock_path);
void note_lock_released(const std::string& lock_path);

}  // namespace crelm::util
