#include "util/handed_down_locks.h"

#include <vector>

#include "util/held_locks.h"

namespace crelm::util {
namespace {

std::vector<FileLock>& handed_down() {
    static std::vector<FileLock> locks;
    return locks;
}

}  // namespace

void hand_down_lock(FileLock&& lock) {
    note_lock_released(lock.path());
    handed_down().push_back(std::move(lock));
}

int handed_down_lock(const std::string& lock_path) {
    for (const FileLock& lock : handed_down()) {
        if (lock.held() && lock.path() == lock_path)
            return lock.descriptor();
    }
    return -1;
}

int release_handed_down_locks() {
    int result = 0;
    for (FileLock& lock : handed_down()) {
        if (lock.release() != 0)
            result = -1;
    }
    handed_down().clear();
    return result;
}

}  // namespace crelm::util
