#include "auth/process_guard.h"

#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>

namespace crelm::auth {

void guard_process() {
    ::umask(077);
    const rlimit no_core{0, 0};
    ::setrlimit(RLIMIT_CORE, &no_core);
    ::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
}

}  // namespace crelm::auth
