// The process state of a program that holds passwords while it runs as root.
#pragma once

namespace crelm::auth {

// Makes the process hold its secrets as close as it can: no core dump (it
// would hold the password) and not dumpable, so that no process of another
// user may attach to it or read its memory; umask 077, although it creates
// nothing.
void guard_process();

}  // namespace crelm::auth
