// Sending signals to processes found by name or by a ps column.
#pragma once

#include <string>

// Runs "/usr/bin/killall" "-<signal>" name (standard descriptors on
// /dev/null) and waits. Result: killall's exit code, as fork_execv_quiet
// gives it.
int send_signal(const std::string& name, int signal);

// Lists processes with "/bin/ps" "-Aww" "-o" "pid,<field>" and sends signal
// to every process whose line contains needle. Result: the number of
// processes signalled (0 when none matches), or -1 when ps fails (its output
// printed, then "send_signal_field(): %s failed"). A line that does not
// start with a process id (a positive number) is reported ("send_signal_field(): malformed ps
// output: %s") and skipped; a failed kill is reported and logged at level 6
// ("send_signal_field(): failed to kill %d: %s") and does not stop the rest.
int send_signal_field(const std::string& field, const std::string& needle, int signal);
