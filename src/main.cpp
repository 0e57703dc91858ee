// sorvane: keeps a mail server's configuration in step with the panel's
// records, one command per run.
#include "commands/dispatcher.h"
#include "commands/top_level.h"
#include "runtime/log.h"
#include "runtime/process_hygiene.h"

#include <syslog.h>

int main(int argc, char** argv) {
    settle_process_state();
    log_init(nullptr, LOG_INFO, LOG_MAIL, kLogOptPerror, "sorvane");
    return crelm::mail::sorvane_commands::run_with_top_level_handling(
        [&] { return crelm::mail::sorvane_commands::dispatch(argc, argv); });
}
