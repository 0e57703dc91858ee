// Rebuilding qmail's compiled user assignment table.
#include "qmail/delivery.h"

#include "qmail/newu_generations.h"
#include "qmail/paths.h"
#include "qmail/rebuild_deferral.h"
#include "runtime/log.h"
#include "util/child_wait.h"
#include "util/file_lock.h"
#include "util/process.h"

#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <optional>

namespace {

int run_qmail_newu() {
    const std::string program = crelm::qmail::kQmailNewu;
    // Its complaints about the table reach the operator on standard error.
    const pid_t child = fork_execv(program, {program}, kNoDescriptor, kNoDescriptor, STDERR_FILENO);
    return crelm::util::wait_child_logged(child, program.c_str());
}

}  // namespace

int qmail_newu() {
    // Within a batch the rebuild runs once, after its last command.
    if (const crelm::qmail::RebuildDeferral deferral = crelm::qmail::rebuild_deferral()) {
        deferral(crelm::qmail::RebuildKind::newu);
        return 0;
    }
    // The caller's edits of assign are done: its generation is taken first.
    std::optional<crelm::qmail::NewuGenerations> generations = crelm::qmail::NewuGenerations::open();
    const std::optional<unsigned long long> mine = generations ? generations->take() : std::nullopt;
    // qmail-newu writes through one fixed temporary name and renames it:
    // two runs at once could leave a corrupt table, so the runs of
    // concurrent processes take turns under one lock.
    FileLock lock = lock_file(crelm::qmail::kQmailNewu, LockPlace::lock_directory);
    if (!lock.held()) {
        if (lock.descriptor() < 0)
            log_message(LOG_ERR, "Unable to lock %s: %s", lock.path().c_str(), std::strerror(errno));
        return -1;
    }
    // A rebuild that began after this caller's edits has completed while
    // it waited: the table already holds them, and that rebuild's result,
    // a failure included, is this caller's too.
    if (mine)
        if (const std::optional<int> shared = generations->result_covering(*mine))
            return *shared;
    const std::optional<unsigned long long> reached = generations ? generations->reached() : std::nullopt;
    const int result = run_qmail_newu();
    if (reached)
        generations->record_rebuild(*reached, result);
    return result;
}
