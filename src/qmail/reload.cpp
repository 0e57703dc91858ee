// Making qmail-send take up changed tables.
#include "qmail/delivery.h"

#include "runtime/log.h"
#include "util/process.h"
#include "util/signals.h"

#include <csignal>
#include <syslog.h>

int reload_qmail_send() {
    if (send_signal("qmail-send", SIGHUP) == 0)
        return 0;
    log_message(LOG_INFO, "Reload of qmail-send failed, performing full restart");
    return restart_qmail();
}

int restart_qmail() {
    return exec_utility("crelmrc", {"qmail", "restart"});
}
