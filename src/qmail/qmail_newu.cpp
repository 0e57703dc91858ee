// Rebuilding qmail's compiled user assignment table.
#include "qmail/delivery.h"

#include "qmail/paths.h"
#include "runtime/log.h"
#include "util/child_wait.h"
#include "util/file_lock.h"
#include "util/process.h"

#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

int qmail_newu() {
    // qmail-newu writes through one fixed temporary name and renames it:
    // two runs at once could leave a corrupt table, so the runs of
    // concurrent processes take turns under one lock.
    FileLock lock = lock_file(crelm::qmail::kQmailNewu, LockPlace::lock_directory);
    if (!lock.held()) {
        if (lock.descriptor() < 0)
            log_message(LOG_ERR, "Unable to lock %s: %s", lock.path().c_str(), std::strerror(errno));
        return -1;
    }
    const std::string program = crelm::qmail::kQmailNewu;
    // Its complaints about the table reach the operator on standard error.
    const pid_t child = fork_execv(program, {program}, kNoDescriptor, kNoDescriptor, STDERR_FILENO);
    return crelm::util::wait_child_logged(child, program.c_str());
}
