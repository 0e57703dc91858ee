// Handing a successful login to the program the mail server named: it runs
// in place of this one with USER (the address), HOME (the mailbox's home)
// and, listed in EXTRA so that the mail server takes them as fields of the
// user, userdb_uid and userdb_gid (the mail owner's ids) and userdb_home.
// Nothing else of the environment changes, except that no password
// variable is passed on and AUTHORIZED becomes 2 after a lookup without a
// password (AUTHORIZED=1), which tells the mail server that the lookup was
// understood.
#pragma once

#include <string>
#include <vector>

#include "auth/mail_home.h"

namespace crelm::auth {

struct LoginReply {
    std::string user;
    MailHome home;
    bool lookup_only = false;  // AUTHORIZED=1: no password was checked
};

// The environment the program gets: environment (NAME=value entries) with
// the entries above replaced.
std::vector<std::string> reply_environment(const char* const* environment, const LoginReply& reply);

// Runs program[0] (a path, or a name looked up in PATH) with program as its
// arguments and the reply's environment. Returns only when it could not be
// run, with errno set.
void exec_reply_program(char* const* program, const LoginReply& reply);

}  // namespace crelm::auth
