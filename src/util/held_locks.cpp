#include "util/held_locks.h"

#include <set>

namespace crelm::util {
namespace {

std::set<std::string>& held() {
    static std::set<std::string> paths;
    return paths;
}

}  // namespace

bool lock_held_here(const std::string& lock_path) {
    return held().contains(lock_path);
}

void note_lock_held(const std::string& lock_path) {
    held().insert(lock_path);
}

void note_lock_released(const std::string& lock_path) {
    held().erase(lock_path);
}

}  // namespace crelm::util
