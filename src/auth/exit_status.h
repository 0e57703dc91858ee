// The exit statuses of a checkpassword program, as the mail server reads
// them.
#pragma once

namespace crelm::auth {

// The password is unacceptable: wrong, or the address has no login that may
// be used (unknown, no mailbox, disabled).
inline constexpr int kExitRefused = 1;
// The program was misused: no descriptor 3, input that the protocol does not
// allow, no program to run.
inline constexpr int kExitMisused = 2;
// A lookup without a password (AUTHORIZED=1) for an address that has no
// usable login: the mail server takes it as "user unknown".
inline constexpr int kExitUnknownUser = 3;
// A temporary problem: the store or the key file cannot be read now, a writer
// held the store beyond the bound, the program to run could not be started.
inline constexpr int kExitTemporary = 111;

}  // namespace crelm::auth
