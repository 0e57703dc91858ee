// Locks that one process takes and holds for the processes it forks: a
// batch holds the locks of the files it edits in memory from its first
// command to its last write, and each command's process, asking for one of
// those locks as it would alone, is given it at once through a duplicate of
// the holder's descriptor (a duplicate shares the holder's flock, and
// closing it does not release that lock).
#pragma once

#include <string>

#include "util/file_lock.h"

namespace crelm::util {

// Keeps lock, held, for this process and the processes it forks from now on.
// It no longer counts as taken by this process itself (util/held_locks.h):
// the forked processes take it as their own, each once.
void hand_down_lock(FileLock&& lock);

// The holder's descriptor of the handed-down lock of lock_path, or -1.
int handed_down_lock(const std::string& lock_path);

// Releases every handed-down lock: 0, or -1 when a close failed (reported).
int release_handed_down_locks();

}  // namespace crelm::util
