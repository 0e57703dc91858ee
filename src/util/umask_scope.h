// Sets the process umask for the life of the object and restores it after.
#pragma once

#include <sys/stat.h>

namespace crelm::util {

class UmaskScope {
public:
    explicit UmaskScope(mode_t mask) : saved_(::umask(mask)) {}
    ~UmaskScope() { ::umask(saved_); }
    UmaskScope(const UmaskScope&) = delete;
    UmaskScope& operator=(const UmaskScope&) = delete;

private:
    mode_t saved_;
};

}  // namespace crelm::util
