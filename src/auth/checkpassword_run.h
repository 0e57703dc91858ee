// sorvane-auth: the login check that the mail server runs for each login,
// speaking the checkpassword interface against sorvane's authentication
// store.
//
//   sorvane-auth <program> [arguments...]
//
// Reads "login\0password\0" (optionally more, 512 bytes at most) from
// descriptor 3, checks it, and on success runs program in its place with the
// mail owner's ids and the mailbox's home in the environment. Exit statuses
// are those of exit_status.h.
#pragma once

namespace crelm::auth {

int run_checkpassword(int argc, char** argv);

}  // namespace crelm::auth
