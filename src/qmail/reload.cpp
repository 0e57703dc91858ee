// Making qmail-send take up changed tables.
#include "qmail/delivery.h"

#include "qmail/rebuild_deferral.h"
#include "runtime/log.h"
#include "util/process.h"
#include "util/signals.h"

#include <csignal>
#include <syslog.h>

int reload_qmail_send() {
    // Within a batch qmail-send is reloaded once, after its last command.
    if (const crelm::qmail::RebuildDeferral deferral = crelm::qmail::rebuild_deferral()) {
        deferral(crelm::qmail::RebuildKind::reload);
        return 0;
    }
    if (send_signal("qmail-send", SIGHUP) == 0)
        return 0;
    log_message(LOG_INFO, "Reload of qmail-send failed, performing full restart");
    return restart_qmail();
}

int restart_qmail() {
    return exec_utility("crelmrc", {"qmail", "restart"});
}
